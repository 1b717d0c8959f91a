// tests/usb_guest/cable.h - test: the two ends of the USB cable, what is at the module's end, the verdict.
// SPDX-License-Identifier: MIT
#ifndef TESTS_USB_GUEST_CABLE_H
#define TESTS_USB_GUEST_CABLE_H

#include "tests/usb_guest/reports.h"

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

inline constexpr int kPort = 24;  // /dev/ttyACM0, the host's end

using Clock = std::chrono::steady_clock;

// Milliseconds that the call takes.
template <typename Call>
long duration_ms(Call call) {
    const Clock::time_point start = Clock::now();
    call();
    return static_cast<long>((Clock::now() - start) / std::chrono::milliseconds(1));
}

// Waits until the condition holds; false when it still does not at the time limit.
template <typename Condition>
bool wait_for(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const Clock::time_point end = Clock::now() + limit;
    while (!condition()) {
        if (Clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// The program's rights outside the scope are those of an ordinary user, as they are at a desk.
class AsRoot {
  public:
    AsRoot();
    ~AsRoot();
    AsRoot(const AsRoot&) = delete;
    AsRoot& operator=(const AsRoot&) = delete;
};

// Prints one line, "ok ..." or "FAILED ...", and counts the failures.
void verdict(bool good, const std::string& text);
int failures();

// Plugs the module in and waits until the host has it; pulls it out, whatever is on its way.
bool plug();
void unplug();

// tavu-sim at the module's end.
class SimulatedModule {
  public:
    SimulatedModule();
    ~SimulatedModule();
    SimulatedModule(const SimulatedModule&) = delete;
    SimulatedModule& operator=(const SimulatedModule&) = delete;

    void control(const std::string& verb, const std::string& argument = "") const;

  private:
    pid_t process_ = -1;
};

// A process at the module's end that sends numbered reports as fast as the line takes them, in
// pieces of random length, and checks the numbered commands that come meanwhile.
class FloodingModule {
  public:
    FloodingModule(Stream stream, std::uint32_t total);
    ~FloodingModule();
    FloodingModule(const FloodingModule&) = delete;
    FloodingModule& operator=(const FloodingModule&) = delete;

    void start() const;
    // Ends it; what it has seen of the commands.
    CommandCheck finish();

  private:
    int orders_ = -1;   // a byte: start; closed: end
    int results_ = -1;  // counts of commands, received and wrong
    pid_t process_ = -1;
};

#endif
