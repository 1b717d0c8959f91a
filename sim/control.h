// sim/control.h - simulated module: faults by name, control lines and the report of tavu-sim.
// Only sim/.
// Thread: main thread.
// SPDX-License-Identifier: MIT
#ifndef SIM_CONTROL_H
#define SIM_CONTROL_H

#include "sim/station.h"

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace sim {

struct NamedStation {
    std::string port;  // name below /dev, or the path of a device elsewhere
    std::unique_ptr<Station> station;
};
using Stations = std::vector<NamedStation>;

bool is_fault_name(const std::string& kind);
// What each fault does, a line each behind `indent` blanks.
std::string fault_help(int indent);
// Gives the station a fault by name; "unplugged" unplugs it.
void apply_fault(Station& station, const std::string& kind);

// Carries out one control line; the result says what is wrong with it, empty when nothing is.
std::string control(const Stations& stations, const std::string& line);

// Counters, modem lines, run state and configuration of every station, as key=value lines.
void print_report(const Stations& stations, std::FILE* out);
// The same as a file, which appears complete or not at all; false when it cannot be written.
bool write_report(const Stations& stations, const std::string& path);
// Whether it can be, as far as can be known beforehand.
bool is_report_writable(const std::string& path);

// Bytes as upper-case hexadecimal pairs with a blank between them.
std::string hex_text(ByteView bytes);

}  // namespace sim

#endif
