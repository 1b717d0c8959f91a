// tests/usb_guest/reports.h - test: numbered reports and frame commands, each told by its number alone.
// Lengths follow no period: the loss of a whole transfer
// shows, wherever it begins and ends.
// SPDX-License-Identifier: MIT
#ifndef TESTS_USB_GUEST_REPORTS_H
#define TESTS_USB_GUEST_REPORTS_H

#include "lib/lib_tavu_2.h"

#include <cstdint>
#include <vector>

using Bytes = std::vector<unsigned char>;

// What a numbered stream is made of; with errors: also protocol-status reports.
enum class Stream { frames, frames_and_errors, commands };

// Appends number `number` of the stream as it stands on the wire.
void numbered_append(Bytes& out, std::uint32_t number, Stream stream);

// The record of that number: of a report as the library must deliver it, of a command as it is sent.
CAN_FRAME_INFO numbered_record(std::uint32_t number, Stream stream);

// What became of a stream; every record that came is held against the one of its number.
class Tally {
  public:
    Tally(Stream stream, std::uint32_t total) : stream_(stream), total_(total) {}

    void take(const CAN_FRAME_INFO& record);
    [[nodiscard]] bool complete() const { return next_ == total_; }
    [[nodiscard]] std::uint32_t received() const { return received_; }
    [[nodiscard]] std::uint32_t lost() const { return total_ - received_; }
    [[nodiscard]] std::uint32_t wrong() const { return wrong_; }  // invented, damaged, out of order

  private:
    Stream stream_;
    std::uint32_t total_;
    std::uint32_t next_ = 0;
    std::uint32_t received_ = 0;
    std::uint32_t wrong_ = 0;
};

// Reads the stream of commands off the module's side. Other commands are passed over.
struct CommandCheck {
    std::uint32_t received = 0;
    std::uint32_t wrong = 0;  // damaged or out of order

    void feed(const Bytes& bytes);

  private:
    [[nodiscard]] bool take();

    Bytes pending_;
    std::uint32_t next_ = 0;
};

#endif
