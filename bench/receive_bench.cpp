// bench/receive_bench.cpp - benchmark: reports per second of each kind beside a bare loop of the same reads.
// Uses lib/lib_tavu_2.h and bench/wire_pair.h.
// SPDX-License-Identifier: MIT
#include "lib/lib_tavu_2.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <numeric>
#include <thread>

#include "bench/ratio_reporter.h"
#include "bench/wire_pair.h"

namespace {

struct ReportKind {
    const char* name;
    std::array<std::uint8_t, 3> header;
    std::size_t length;  // bytes
};

constexpr std::array kKinds{
    ReportKind{"CAN 2.0B (E1)", {0xE1, 0x81, 0x00}, 17},
    ReportKind{"time-stamped (E2)", {0xE2, 0x81, 0x00}, 25},
    ReportKind{"CAN FD 8 bytes (F1)", {0xF1, 0x81, 0x04}, 26},
    ReportKind{"CAN FD 64 bytes (F1)", {0xF1, 0xF1, 0x05}, 82},
    ReportKind{"protocol status (99 04)", {0x99, 0x04, 0x00}, 17},
};
// Written at once: about what a pty takes in one go, so that the feeder outruns the reader.
constexpr std::size_t kBlockBytes = 10'000;

std::vector<std::uint8_t> block_of(const ReportKind& kind) {
    std::vector<std::uint8_t> block;
    while (block.size() < kBlockBytes) {
        const std::size_t start = block.size();
        block.insert(block.end(), kind.header.begin(), kind.header.end());
        block.resize(start + kind.length, 0x01);
        const auto sum = std::accumulate(block.begin() + static_cast<std::ptrdiff_t>(start),
                                         block.end() - 3, 0U);
        std::copy_n(
            std::array{static_cast<std::uint8_t>(sum), std::uint8_t{0x0D}, std::uint8_t{0x0A}}
                .begin(),
            3, block.end() - 3);
    }
    return block;
}

void read_whole(int fd, std::uint8_t* to, std::size_t length) {
    for (std::size_t got = 0; got < length;) {
        const ssize_t piece = read(fd, to + got, length - got);
        got += piece > 0 ? static_cast<std::size_t>(piece) : 0;
    }
}

// A pty brings less than a fast reader takes, so only what it holds when full is timed, again and
// again: that is the reader's own speed. `read_one` takes one report.
constexpr std::size_t kHeldBytes = 50'000;
constexpr std::chrono::milliseconds kFillTime{1};

template <typename ReadOne>
void timed_reports(benchmark::State& state, const ReportKind& kind, ReadOne read_one) {
    const std::size_t reports = kHeldBytes / kind.length;
    for (auto _ : state) {
        std::this_thread::sleep_for(kFillTime);
        const auto start = std::chrono::steady_clock::now();
        for (std::size_t i = 0; i < reports; ++i) {
            read_one();
        }
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(taken.count());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(reports));
}

void bare(benchmark::State& state, const ReportKind& kind) {
    bench::WirePair wire;
    wire.stream(block_of(kind));
    std::array<std::uint8_t, 82> report{};
    timed_reports(state, kind, [&] {
        read_whole(wire.slave(), report.data(), 3);
        read_whole(wire.slave(), report.data() + 3, kind.length - 3);
        benchmark::DoNotOptimize(report);
    });
}

void receive(benchmark::State& state, const ReportKind& kind) {
    bench::WirePair wire;
    wire.stream(block_of(kind));
    CAN_FRAME_INFO frame{};
    timed_reports(state, kind, [&] {
        while (TAVUReceive_CANFD(wire.port(), &frame) != TAVU_REPORT) {
        }
        benchmark::DoNotOptimize(frame);
    });
}

}  // namespace

int main(int argc, char** argv) {
    for (const ReportKind& kind : kKinds) {
        const std::string name = kind.name;
        for (auto* run :
             {benchmark::RegisterBenchmark(("bare/" + name).c_str(), bare, kind),
              benchmark::RegisterBenchmark(("TAVUReceive_CANFD/" + name).c_str(), receive, kind)}) {
            run->UseManualTime()->MinTime(0.1)->Repetitions(7)->ReportAggregatesOnly();
        }
    }
    return bench::run_with_ratios(argc, argv);
}
