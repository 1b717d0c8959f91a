// lib/stuck_close.h - library: closes a serial device that keeps output it cannot send.
// Library-internal.
// Thread: any, one at a time in the process.
// SPDX-License-Identifier: MIT
#ifndef LIB_STUCK_CLOSE_H
#define LIB_STUCK_CLOSE_H

namespace tavu {

// Closes `fd` without the 30 s that the kernel's USB serial driver waits in a close for output to
// leave: it can neither be told to discard it nor, by a user without rights of administration, not
// to wait, but a signal ends the wait. So a signal that the process does not use is sent to the
// calling thread until the close is over; its disposition and the thread's mask are put back.
void stuck_close(int fd);

}  // namespace tavu

#endif
