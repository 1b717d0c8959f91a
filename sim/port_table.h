// sim/port_table.h - simulated module: which device path leads to which pty, and its modem lines.
// Shared by the stations and the serial shim: within one process, or as a mapped file by several.
// Thread: any; everything that changes is atomic.
// SPDX-License-Identifier: MIT
#ifndef SIM_PORT_TABLE_H
#define SIM_PORT_TABLE_H

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

namespace sim {

// Names the table file for programs behind the preloaded shim.
inline constexpr const char* kTableVariable = "TAVU_SIM_TABLE";

// In every program that has the serial shim linked in; such a program needs no preloading.
inline constexpr const char* kShimMarker = "tavu-sim: serial shim linked in";

// One device path. All zero: not in use. A path once given stays, so readers need no lock.
struct PortSlot {
    enum : std::uint32_t { kFree = 0, kBeingNamed = 1, kNamed = 2 };
    std::atomic<std::uint32_t> state;  // released by the station once `device` is written
    char device[28];
    std::atomic<std::uint32_t> served;   // 1 while a station serves the path
    std::atomic<std::uint32_t> pty;      // number below /dev/pts plus one; 0 = unplugged
    std::atomic<std::uint32_t> denied;   // 1: nobody may open it
    std::atomic<std::uint32_t> lines;    // TIOCM_ bits as the host last set them
    std::atomic<std::uint32_t> framing;  // c_cflag as the host last set it; 0 = never
};

struct PortTable {
    std::array<PortSlot, 96> slots;
};

// The table of this process: the file that the environment names, else one of its own.
PortTable& port_table();

// Moves this process's table to a shared file, before its first use; the result is the path to hand
// to other programs, empty on failure. The file vanishes with the process.
std::string share_port_table();

// Whether the path is one that a module may be attached to; such paths are never passed on to the
// real devices behind the shim.
bool is_candidate_path(const char* path);
// Whether it also has one of the numbers that are searched.
bool is_searched_path(const char* path);

// The slot of a path; none when no station ever served it.
PortSlot* find_port(const char* device);

// Takes a path for a station; none when another one serves it or the table is full.
PortSlot* claim_port(const std::string& device);
void release_port(PortSlot& port);

}  // namespace sim

#endif
