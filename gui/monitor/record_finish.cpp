// gui/monitor/record_finish.cpp - user interface: recordings that go on being written without the page.
// Uses gui/monitor/recorder.h and the notice bar of the main window.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/record_finish.h"

#include "gui/notice_bar.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace {

constexpr guint kPollPeriod_ms = 100;
constexpr gint64 kPatience_us = 2 * G_USEC_PER_SEC;  // then it is told that the disk is slow

struct Unfinished {
    RecorderPointer recorder;
    RecordFacts facts;
    gint64 since_us = 0;
};
std::vector<Unfinished> unfinished;
guint poll_timer = 0;

// What the bar says, a line each; parts that are empty are left out.
struct Words {
    std::string text;
    std::string tooltip;
};
Words results;  // of recordings that ended without the page
Words slow;     // those that take long
Words present;  // of the page

void append(Words* words, const Words& more) {
    append_line(&words->text, more.text);
    append_line(&words->tooltip, more.tooltip);
}

void show_words() {
    Words all;
    for (const Words& words : {results, slow, present}) {
        append(&all, words);
    }
    if (all.text.empty()) {
        notice_hide(Notice::recording);
    } else {
        notice_show(Notice::recording, all.text, all.tooltip);
    }
}

bool is_through(const RecorderState& state) {
    return state.phase == RecorderPhase::kEnded || state.phase == RecorderPhase::kFailed;
}

// What is missing of a recording that is over; empty when nothing is.
std::string what_is_missing(const RecordFacts& facts, const RecorderState& state) {
    if (state.phase == RecorderPhase::kFailed) {
        return record_no_file(facts.path, state.error);
    }
    if (state.lost == 0 && state.last_error != 0) {
        return record_trouble_sentence(facts.path, state);
    }
    return state.lost == 0 && facts.lost_before.empty() ? "" : record_result(facts, state);
}

// Says what is missing on standard error, which also those see who start the program from there.
Words told(const RecordFacts& facts, const RecorderState& state) {
    const std::string text = what_is_missing(facts, state);
    if (text.empty()) {
        return {};
    }
    g_printerr("%s\n", text.c_str());
    return {text, record_whole_name(facts.path)};
}

// That the disk takes long; empty while it does not.
Words words_of_slow(const Unfinished& one) {
    if (g_get_monotonic_time() - one.since_us < kPatience_us) {
        return {};
    }
    return {record_base_name(one.facts.path) + " is still being written, as the disk is slow.",
            record_whole_name(one.facts.path)};
}

gboolean poll(gpointer /*user_data*/) {
    slow = {};
    std::erase_if(unfinished, [](const Unfinished& one) {
        const RecorderState state = recorder_state(one.recorder.get());
        append(is_through(state) ? &results : &slow,
               is_through(state) ? told(one.facts, state) : words_of_slow(one));
        return is_through(state);
    });
    show_words();
    if (!unfinished.empty()) {
        return G_SOURCE_CONTINUE;
    }
    poll_timer = 0;
    return G_SOURCE_REMOVE;
}

}  // namespace

void record_finish(RecorderPointer recorder, const RecordFacts& facts) {
    unfinished.push_back({std::move(recorder), facts, g_get_monotonic_time()});
    if (poll_timer == 0) {
        poll_timer = g_timeout_add(kPollPeriod_ms, poll, nullptr);
    }
}

bool record_is_finishing(const std::string& path) {
    return std::ranges::any_of(unfinished,
                               [&path](const Unfinished& one) { return one.facts.path == path; });
}

void record_finish_all(int most_ms) {
    if (poll_timer != 0) {
        g_source_remove(poll_timer);
        poll_timer = 0;
    }
    const gint64 limit_us = g_get_monotonic_time() + gint64{most_ms} * 1000;
    for (const Unfinished& one : unfinished) {
        const gint64 left_us = std::max<gint64>(limit_us - g_get_monotonic_time(), 0);
        const bool is_over = recorder_wait(one.recorder.get(), static_cast<int>(left_us / 1000));
        const RecorderState state = recorder_state(one.recorder.get());
        told(one.facts, is_over ? state : record_given_up(state));
        if (!is_over && state.waiting == 0) {
            g_printerr("%s may not be whole: the disk did not answer.\n",
                       record_base_name(one.facts.path).c_str());
        }
    }
    unfinished.clear();
    slow = {};
}

void record_notice(const std::string& text, const std::string& tooltip) {
    present = {text, tooltip};
    show_words();
}

void record_notice_begin() {
    results = {};
    record_notice("", "");
}
