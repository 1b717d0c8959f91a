// cli/interrupt.h - command: messages, and the interrupt that ends the work cleanly.
// Thread: any, except where said.
// SPDX-License-Identifier: MIT
#ifndef CLI_INTERRUPT_H
#define CLI_INTERRUPT_H

#include <cstdint>

namespace cli {

// "tavu: " and the text, as printf, on standard error: a line in one piece.
[[gnu::format(printf, 1, 2)]] void complain(const char* format, ...);

// From now on an interrupt, a termination or a hang-up of the terminal ends the work cleanly, and a
// closed pipe, or a file at the limit of its size, is an error of the write instead of the end of
// the process. Main, before there is another thread.
void interrupts_take();
bool is_interrupted();
// Waits that long, less when interrupted.
void pause_us(std::int64_t time_us);

}  // namespace cli

#endif
