// gui/monitor/message_file.cpp - user interface: a list of periodic messages as text, and in a file.
// Uses trace/text.h and the limits of service/message_schedule.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/message_file.h"

#include "gui/widgets.h"

#include "service/message_schedule.h"

#include "trace/text.h"

#include <glib/gstdio.h>
#include <gtk/gtk.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace {

constexpr std::string_view kSpaces = " \t";
constexpr const char* kHeading =
    "# Periodic messages: on or off, channel, period, count (x0: without end), frame, name\n";
constexpr const char* kLineForm = "A line reads: \"on  can0  100 ms  x0  123#DEADBEEF  # name\".";
constexpr std::int64_t kMicrosInMilli = 1000;
constexpr int kDecimalsMost = 3;
constexpr std::int64_t kFileBytesMost = 2'000'000;
constexpr int kFileMode = 0666;  // which the user's mask narrows

// ---- Values ----

bool digits_parse(std::string_view text, std::int64_t* value) {
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, *value);
    return result.ec == std::errc() && result.ptr == end && *value >= 0 && text[0] != '-';
}

// ---- One line ----

// The words of a line, one by one.
class Words {
  public:
    explicit Words(std::string_view line) : line_(line) {}
    std::string_view next() {
        at_ = std::min(line_.find_first_not_of(kSpaces, at_), line_.size());
        begin_ = at_;
        at_ = std::min(line_.find_first_of(kSpaces, at_), line_.size());
        return line_.substr(begin_, at_ - begin_);
    }
    // All behind the last word.
    [[nodiscard]] std::string_view rest() const { return line_.substr(at_); }

  private:
    std::string_view line_;
    std::size_t begin_ = 0;
    std::size_t at_ = 0;
};

std::string quoted(std::string_view text) {
    return '"' + name_clean(text) + '"';
}

// What is wrong with a word; an empty text: nothing. Likewise below.
std::string take_channel(std::string_view word, int* channel) {
    const trace::Interfaces interfaces;
    const auto* const found = std::ranges::find_if(
        interfaces.name, [word](const auto& name) { return word == name.data(); });
    *channel = static_cast<int>(found - interfaces.name.begin());
    return found != interfaces.name.end()
               ? ""
               : quoted(word) + " is no channel: can0 (CAN 1) or can1 (CAN 2).";
}

std::string take_frame(std::string_view word, CAN_FRAME_INFO* frame) {
    const int channel = frame->CAN_port;
    trace::ParseError error;
    if (trace::frame_parse(word, frame, &error) != TAVU_SUCCESS) {
        return "the frame " + quoted(word) + " is wrong at its character " +
               std::to_string(error.offset + 1) + ": " + error.reason + '.';
    }
    frame->CAN_port = channel;
    if (frame->esi != 0) {
        return "the frame has ESI set, which the module alone sets: its flags are 0 or 1.";
    }
    const bool is_raw = frame->fdf == TAVU_FDF_OFF && frame->dlc > trace::kClassicBytes;
    return is_raw ? "the frame has a dlc above 8, which is not sent." : "";
}

std::string take_name(std::string_view rest, std::string* name) {
    const std::size_t begin = rest.find_first_not_of(kSpaces);
    if (begin == std::string_view::npos) {
        return "";
    }
    if (rest[begin] != '#') {
        return "a name begins with #.";
    }
    rest.remove_prefix(begin + 1);
    if (g_utf8_validate_len(rest.data(), rest.size(), nullptr) == FALSE) {
        return "the name is no UTF-8 text; save the file in UTF-8.";
    }
    *name = name_clean(rest);
    return "";
}

std::string take_line(std::string_view line, ListedMessage* message) {
    Words words(line);
    const std::string_view state = words.next();
    if (state != "on" && state != "off") {
        return quoted(state) + " is neither on nor off. " + kLineForm;
    }
    message->is_on = state == "on";
    std::string fault = take_channel(words.next(), &message->frame.CAN_port);
    if (!fault.empty()) {
        return fault;
    }
    const std::string_view period = words.next();
    if (!period_parse(period, &message->period_us) || words.next() != "ms") {
        return quoted(period) + " is no period: 0.1 ms to 3600000 ms, three decimals at most.";
    }
    const std::string_view count = words.next();
    if (!count.starts_with('x') || !count_parse(count.substr(1), &message->count)) {
        return quoted(count) + " is no count: x0 (without end) to x1000000000.";
    }
    fault = take_frame(words.next(), &message->frame);
    return fault.empty() ? take_name(words.rest(), &message->name) : fault;
}

std::string line_of(const ListedMessage& message) {
    std::array<char, trace::kTextMost> frame{};
    trace::frame_write(message.frame, frame);
    const trace::Interfaces interfaces;
    const auto channel = static_cast<std::size_t>(message.frame.CAN_port);
    const GText line(g_strdup_printf(
        "%-3s  %s  %s ms  x%u  %s", message.is_on ? "on" : "off", interfaces.name[channel].data(),
        period_text(message.period_us).c_str(), message.count, frame.data()));
    return message.name.empty() ? line.get() : line.get() + ("  # " + message.name);
}

// ---- Files ----

// How messages name a file; its name need not be UTF-8.
std::string shown_name(const char* path) {
    const GText name(g_filename_display_name(path));
    return name.get();
}

std::string taken(GError* error) {
    std::string text = error->message;
    g_error_free(error);
    return text;
}

}  // namespace

std::string period_text(std::int64_t period_us) {
    std::string text = std::to_string(period_us / kMicrosInMilli);
    std::int64_t rest = period_us % kMicrosInMilli;
    if (rest != 0) {
        text += '.';
    }
    for (std::int64_t digit = kMicrosInMilli / 10; rest != 0; rest %= digit, digit /= 10) {
        text += static_cast<char>('0' + rest / digit);
    }
    return text;
}

bool period_parse(std::string_view text, std::int64_t* period_us) {
    const std::size_t point = std::min(text.find('.'), text.size());
    std::string decimals(text.substr(std::min(point + 1, text.size())));
    std::int64_t whole = 0;
    std::int64_t part = 0;
    if (decimals.size() > kDecimalsMost || (point < text.size() && decimals.empty())) {
        return false;
    }
    decimals.resize(kDecimalsMost, '0');
    if (!digits_parse(text.substr(0, point), &whole) || !digits_parse(decimals, &part) ||
        whole > kPeriodMost_us / kMicrosInMilli) {
        return false;
    }
    const std::int64_t value_us = whole * kMicrosInMilli + part;
    if (value_us < kPeriodLeast_us || value_us > kPeriodMost_us) {
        return false;
    }
    *period_us = value_us;
    return true;
}

bool count_parse(std::string_view text, std::uint32_t* count) {
    std::int64_t value = 0;
    if (!digits_parse(text, &value) || value > kCountMost) {
        return false;
    }
    *count = static_cast<std::uint32_t>(value);
    return true;
}

std::string name_clean(std::string_view text) {
    const GText valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
    for (char* at = valid.get(); *at != '\0'; at = g_utf8_next_char(at)) {
        if (g_ascii_iscntrl(*at)) {
            *at = ' ';
        }
    }
    return g_strstrip(valid.get());
}

std::string messages_write(std::span<const ListedMessage> messages) {
    std::string text = kHeading;
    for (const ListedMessage& message : messages) {
        text += line_of(message) + '\n';
    }
    return text;
}

bool messages_parse(std::string_view text, MessageList* messages, std::string* fault) {
    MessageList parsed;
    int number = 0;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        ++number;
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        const std::size_t begin = line.find_first_not_of(kSpaces);
        if (begin == std::string_view::npos || line[begin] == '#') {
            continue;
        }
        ListedMessage message;
        std::string wrong = take_line(line, &message);
        if (parsed.size() == kMessagesMost) {
            wrong = "a list has at most " + std::to_string(kMessagesMost) + " messages.";
        }
        if (!wrong.empty()) {
            *fault = "line " + std::to_string(number) + ": " + wrong;
            return false;
        }
        parsed.push_back(std::move(message));
    }
    *messages = std::move(parsed);
    return true;
}

bool messages_save(const char* path, std::span<const ListedMessage> messages, std::string* fault) {
    // Written beside the old file and put in its place once it is on the disk.
    const std::string text = messages_write(messages);
    GError* error = nullptr;
    if (g_file_set_contents_full(path, text.c_str(), static_cast<gssize>(text.size()),
                                 G_FILE_SET_CONTENTS_CONSISTENT, kFileMode, &error) == FALSE) {
        *fault = "The list is not saved: " + taken(error) + '.';
        return false;
    }
    return true;
}

bool messages_load(const char* path, MessageList* messages, std::string* fault) {
    GStatBuf status{};
    if (g_stat(path, &status) == 0 &&
        (!S_ISREG(status.st_mode) || status.st_size > kFileBytesMost)) {
        *fault = shown_name(path) + " is no list of messages: choose a file that was saved here.";
        return false;
    }
    char* contents = nullptr;
    gsize bytes = 0;
    GError* error = nullptr;
    if (g_file_get_contents(path, &contents, &bytes, &error) == FALSE) {
        *fault = "The list is not loaded: " + taken(error) + '.';
        return false;
    }
    const GText text(contents);
    if (!messages_parse({contents, bytes}, messages, fault)) {
        *fault = shown_name(path) + ", " + *fault + " Nothing was loaded.";
        return false;
    }
    return true;
}
