// bench/wire_pair.h - benchmark: a raw pty whose slave is an open port of the library.
// Uses the open-port list: no module answers here, so the library's own open would refuse.
// SPDX-License-Identifier: MIT
#ifndef BENCH_WIRE_PAIR_H
#define BENCH_WIRE_PAIR_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

namespace bench {

class WirePair {
  public:
    WirePair();
    ~WirePair();
    WirePair(const WirePair&) = delete;
    WirePair& operator=(const WirePair&) = delete;

    [[nodiscard]] int port() const;
    [[nodiscard]] int slave() const { return slave_; }
    [[nodiscard]] int master() const { return master_; }

    // Writes `block` to the host again and again, as fast as the pty takes it, until stop().
    void stream(std::vector<std::uint8_t> block);
    // Reads and drops whatever the host writes until stop(): as soon as it comes, or at that
    // interval, as a USB host controller fetches it.
    void drain(std::chrono::microseconds interval = {});
    void stop();

  private:
    void run(std::function<bool()> step);

    int master_ = -1;
    int slave_ = -1;
    std::atomic<bool> running_{false};
    std::thread thread_;
};

}  // namespace bench

#endif
