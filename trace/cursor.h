// trace/cursor.h - trace: a place in a text that is being parsed.
// Only trace/.
// Thread: any.
// SPDX-License-Identifier: MIT
#ifndef TRACE_CURSOR_H
#define TRACE_CURSOR_H

#include "trace/text.h"

#include <algorithm>
#include <string_view>

namespace trace {

// Begins behind the spaces in front of the text and ends before those behind it. What is taken is
// passed over. A call that fails gives false and has put place and reason into the ParseError.
class Cursor {
  public:
    Cursor(std::string_view text, ParseError* error) : text_(text), error_(error) {
        text_ = text_.substr(0, text_.find_last_not_of(kSpaces) + 1);
        skip_spaces();
    }

    [[nodiscard]] std::size_t at() const { return at_; }
    [[nodiscard]] bool is_end() const { return at_ == text_.size(); }
    // The next character, NUL at the end.
    [[nodiscard]] char peek() const { return is_end() ? '\0' : text_[at_]; }
    [[nodiscard]] bool is_digit() const { return peek() >= '0' && peek() <= '9'; }
    [[nodiscard]] bool is_hex() const {
        return is_digit() || (peek() >= 'A' && peek() <= 'F') || (peek() >= 'a' && peek() <= 'f');
    }
    [[nodiscard]] std::string_view text_behind_spaces() const {
        return text_.substr(std::min(text_.find_first_not_of(kSpaces, at_), text_.size()));
    }

    // Only where is_hex() is so.
    unsigned int take_hex_digit() {
        const char digit = text_[at_++];
        return static_cast<unsigned int>(digit <= '9' ? digit - '0' : (digit | 0x20) - 'a' + 10);
    }
    // Takes what is expected; false, and no error, when something else is there.
    bool take(std::string_view expected) {
        if (!text_.substr(at_).starts_with(expected)) {
            return false;
        }
        at_ += expected.size();
        return true;
    }
    bool take(char expected) { return take(std::string_view(&expected, 1)); }
    // Up to the next space.
    std::string_view take_word() {
        const std::size_t begin = at_;
        at_ = std::min(text_.find_first_of(kSpaces, at_), text_.size());
        return text_.substr(begin, at_ - begin);
    }
    // One space or more; fails without.
    bool take_spaces() {
        const std::size_t begin = at_;
        skip_spaces();
        return at_ > begin || fail(is_end() ? "the line ends too early" : "no space");
    }
    // `count` characters, whatever they are, and a quotation mark.
    bool take_quoted(std::size_t count) {
        at_ = std::min(at_ + count, text_.size());
        return take('\'') || fail("no quotation mark behind the characters");
    }

    bool expect_end() { return is_end() || fail("this character cannot stand here"); }
    // The end, or a space.
    bool expect_end_of_word() {
        return is_end() || kSpaces.find(peek()) != std::string_view::npos || expect_end();
    }
    bool fail(const char* reason) { return fail_at(at_, reason); }
    bool fail_at(std::size_t offset, const char* reason) {
        *error_ = {.offset = static_cast<int>(offset), .reason = reason};
        return false;
    }

  private:
    static constexpr std::string_view kSpaces = " \t";

    void skip_spaces() { at_ = std::min(text_.find_first_not_of(kSpaces, at_), text_.size()); }

    std::string_view text_;
    ParseError* error_;
    std::size_t at_ = 0;
};

}  // namespace trace

#endif
