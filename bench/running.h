// bench/running.h - benchmark: a flooding module, and the processor time of a running program.
// Thread: any.
// SPDX-License-Identifier: MIT
#ifndef BENCH_RUNNING_H
#define BENCH_RUNNING_H

#include "sim/station.h"

#include <unistd.h>

#include <cstdio>
#include <string>

// Frames take no time on this bus, so it carries any rate that is asked for.
inline sim::StationOptions module_options(double frames_per_s) {
    sim::StationOptions options;
    options.traffic_per_s = frames_per_s;
    options.flood = true;
    options.keep_commands = false;
    return options;
}

// Processor time in the text of /proc/PID/stat or of one of its threads; 0 when it has ended.
inline double processor_s_of(const std::string& stat) {
    const std::size_t close = stat.rfind(')');
    if (close == std::string::npos) {
        return 0;
    }
    unsigned long user = 0;
    unsigned long system = 0;
    std::sscanf(stat.c_str() + close + 1, " %*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu",
                &user, &system);
    return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

#endif
