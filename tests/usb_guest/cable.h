// tests/usb_guest/cable.h - test: the USB cable, waiting, and the verdict on each trial.
// Uses the kernel's gadget module g_serial, which is the cable: loaded it is plugged in.
// SPDX-License-Identifier: MIT
#ifndef TESTS_USB_GUEST_CABLE_H
#define TESTS_USB_GUEST_CABLE_H

#include "sim/station.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <thread>

using Clock = std::chrono::steady_clock;

inline constexpr const char* kHostEnd = "/dev/ttyACM0";
inline constexpr const char* kModuleEnd = "/dev/ttyGS0";

inline int failures = 0;

// Milliseconds that the call takes.
template <typename Call>
long duration_ms(Call call) {
    const Clock::time_point start = Clock::now();
    call();
    return static_cast<long>((Clock::now() - start) / std::chrono::milliseconds(1));
}

// Waits until the condition holds; false when it still does not after 10 s.
template <typename Condition>
bool wait_for(Condition condition) {
    for (const auto end = Clock::now() + std::chrono::seconds(10); !condition();) {
        if (Clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Prints one line, "ok ..." or "FAILED ...", and counts the failures.
[[gnu::format(printf, 2, 3)]] inline void verdict(bool good, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::fputs(good ? "ok " : "FAILED ", stdout);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it has just been started
    std::vprintf(format, arguments);
    va_end(arguments);
    std::puts("");
    std::fflush(stdout);
    failures += good ? 0 : 1;
}

// Else the program has the rights of an ordinary user, as it has at a desk.
struct AsRoot {
    AsRoot() { failures += seteuid(0) == 0 ? 0 : 1; }
    ~AsRoot() { failures += seteuid(1000) == 0 ? 0 : 1; }
};

// Plugs the cable in and waits until both ends are there.
inline bool cable_plug() {
    const AsRoot root;
    const int driver = open("/modules/g_serial.ko", O_RDONLY | O_CLOEXEC);
    const long result = syscall(SYS_finit_module, driver, "use_acm=1", 0);
    close(driver);
    return result == 0 &&
           wait_for([] { return chmod(kHostEnd, 0666) == 0 && chmod(kModuleEnd, 0666) == 0; });
}

// Pulls the module out. The line is cut first, in the middle of whatever goes over it. The gadget
// would not come back from that, so it is removed as well, once nobody uses it.
inline void cable_pull(sim::Station& module) {
    const AsRoot root;
    std::ofstream("/sys/class/udc/dummy_udc.0/soft_connect") << "disconnect\n";
    module.unplug();
    syscall(SYS_delete_module, "g_serial", 0);
}

#endif
