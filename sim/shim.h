// sim/shim.h - simulated module: control of the serial shim that is linked into a test.
// Thread: every call from any thread.
// SPDX-License-Identifier: MIT
#ifndef SIM_SHIM_H
#define SIM_SHIM_H

namespace sim {

enum class Call { open, read, write, ioctl, tcgetattr, tcsetattr, flock, poll };

// The next `times` calls of that kind on a simulated port, after `skip` undisturbed ones, fail with
// `error`; an `error` of 0 cuts the transfer of a read or write to `limit` bytes instead.
struct CallFault {
    Call call;
    int error = 0;
    int times = 1;
    int skip = 0;
    int limit = 0;
};

// Adds a fault. Several for one kind of call take effect one after the other, 16 in all at most.
void shim_fail(CallFault fault);
// Drops all faults that have not struck.
void shim_fail_none();

// What a simulated port says it has still to send; a pty itself never has anything. -1: ask the pty.
// Above 0, a close waits for it for 30 s or until a signal comes, as a USB serial driver does.
void shim_unsent(int bytes);

// Descriptors on simulated ports that the product holds open now.
int shim_open_descriptors();

}  // namespace sim

#endif
