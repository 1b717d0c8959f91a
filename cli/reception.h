// cli/reception.h - command: receives on a thread of its own, so that no output holds it up.
// Thread: main; the thread that receives is inside.
// SPDX-License-Identifier: MIT
#ifndef CLI_RECEPTION_H
#define CLI_RECEPTION_H

#include "trace/record.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace cli {

// Everything that a port receives, from construction to destruction, error reports as error frames.
class Reception {
  public:
    explicit Reception(int com_port);
    ~Reception();
    Reception(const Reception&) = delete;
    Reception& operator=(const Reception&) = delete;

    // What has come since the last call, at least one record unless the time is over, the module is
    // gone or the work was interrupted. Valid until the next call.
    std::span<const trace::Record> take(int timeout_ms);
    // Receives no more; what has come can still be taken.
    void end();
    // The module went away and all that it sent was taken.
    [[nodiscard]] bool is_over();
    // Reports that are no frame, and EEPROM errors, which have no form as a frame.
    [[nodiscard]] std::uint64_t invalid() const { return invalid_.load(); }
    [[nodiscard]] std::uint64_t eeprom_errors() const { return eeprom_errors_.load(); }
    // Frames dropped because they were not taken in time.
    [[nodiscard]] std::uint64_t overrun() const { return overrun_.load(); }

  private:
    void receive();
    void add(const CAN_FRAME_INFO& report);

    const int com_port_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<trace::Record> arrived_;  // under mutex_
    std::vector<trace::Record> taken_;
    bool is_gone_ = false;  // under mutex_
    std::atomic<std::uint64_t> overrun_{0};
    std::atomic<std::uint64_t> invalid_{0};
    std::atomic<std::uint64_t> eeprom_errors_{0};
    std::atomic<bool> is_ended_{false};
    std::thread thread_;
};

// Tells losses of both sides, of the reception and of the library, on standard error as soon as
// they are seen, and counts them.
class LossWatch {
  public:
    // Looks for new ones; those that follow soon are told together.
    void look(const Reception& reception);
    // The reception is over; the counts of another one begin at 0 and are added.
    void keep() { kept_ = counts_; }
    // In words, "nothing lost" if so.
    [[nodiscard]] std::string summary() const;
    [[nodiscard]] bool any() const { return !text_.empty(); }

  private:
    std::array<std::uint64_t, 7> kept_{};  // of receptions that are over
    std::array<std::uint64_t, 7> counts_{};
    std::string text_;  // the losses so far in words
    std::string told_;  // the last message
    std::chrono::steady_clock::time_point quiet_until_;
};

}  // namespace cli

#endif
