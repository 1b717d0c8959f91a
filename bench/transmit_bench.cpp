// bench/transmit_bench.cpp - benchmark: frame commands per second (encode and write, pacing off),
// beside a bare write. Uses lib/lib_tavu_2.h, lib/link.h (pacing) and bench/wire_pair.h.
// SPDX-License-Identifier: MIT
#include "lib/lib_tavu_2.h"
#include "lib/link.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "bench/ratio_reporter.h"
#include "bench/wire_pair.h"

namespace {

struct CommandKind {
    const char* name;
    int (*send)(int, CAN_FRAME_INFO);
    int dlc;
    std::size_t length;  // bytes
};

constexpr int kRoomTry_ms = 5;

constexpr std::array kKinds{
    CommandKind{"CAN 2.0B, 17 bytes", TAVUSend, 8, 17},
    CommandKind{"CAN FD, 18 bytes", TAVUSend_CANFD, 8, 18},
    CommandKind{"CAN FD, 74 bytes", TAVUSend_CANFD, 15, 74},
};

// One write; what a full port did not take is written as soon as there is room.
void bare(benchmark::State& state, const CommandKind& kind) {
    bench::WirePair wire;
    wire.drain();
    const std::array<std::uint8_t, 74> command{};
    for (auto _ : state) {
        for (std::size_t left = kind.length; left > 0;) {
            const ssize_t written = write(wire.slave(), command.data(), left);
            left -= static_cast<std::size_t>(std::max<ssize_t>(written, 0));
            if (left > 0) {
                pollfd room{.fd = wire.slave(), .events = POLLOUT, .revents = 0};
                benchmark::DoNotOptimize(poll(&room, 1, kRoomTry_ms));
            }
        }
    }
    state.SetItemsProcessed(state.iterations());
}

void send(benchmark::State& state, const CommandKind& kind) {
    bench::WirePair wire;
    wire.drain();
    tavu::send_delay[TAVU_CAN_1] = 0;
    CAN_FRAME_INFO frame{};
    frame.id_type = TAVU_SID;
    frame.id = 0x123;
    frame.dlc = kind.dlc;
    frame.fdf = kind.send == TAVUSend_CANFD ? TAVU_FDF_ON : TAVU_FDF_OFF;
    for (auto _ : state) {
        if (kind.send(wire.port(), frame) != TAVU_SUCCESS) {
            state.SkipWithError("a frame command was not written");
        }
    }
    state.SetItemsProcessed(state.iterations());
}

}  // namespace

int main(int argc, char** argv) {
    for (const CommandKind& kind : kKinds) {
        const std::string name = kind.name;
        for (auto* run : {benchmark::RegisterBenchmark(("bare/" + name).c_str(), bare, kind),
                          benchmark::RegisterBenchmark(("send/" + name).c_str(), send, kind)}) {
            run->UseRealTime()->MinTime(0.3)->Repetitions(7)->ReportAggregatesOnly();
        }
    }
    return bench::run_with_ratios(argc, argv);
}
