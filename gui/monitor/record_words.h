// gui/monitor/record_words.h - user interface: what is said of a recording.
// Only gui/monitor/ includes it.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_RECORD_WORDS_H
#define GUI_MONITOR_RECORD_WORDS_H

#include "gui/monitor/recorder.h"

#include <glib.h>

#include <string>

// What its state does not tell.
struct RecordFacts {
    std::string path;
    gint64 duration_us = 0;   // from start to stop
    std::string lost_before;  // losses on the way to the recording, in words; empty: none
};

// "1 frame", "2 frames": the words behind the number begin with a blank.
std::string of_count(std::uint64_t count, const char* one, const char* more);

// Name of the file without and with its folder, as UTF-8.
std::string record_base_name(const std::string& path);
std::string record_whole_name(const std::string& path);

// Hours, minutes and seconds.
std::string duration_text(gint64 duration_us);

// What is wrong with the file, while it is written and at the end; empty when nothing is.
std::string record_trouble(const RecorderState& state);

// "Recording to run.log: ..." with that trouble; empty when there is none.
std::string record_trouble_sentence(const std::string& path, const RecorderState& state);

// The whole recording in a sentence or two.
std::string record_result(const RecordFacts& facts, const RecorderState& state);

// That the file could not be created, as errno `error` says.
std::string record_no_file(const std::string& path, int error);

// The state of a recording that nobody waits for any longer: what still waits is missing.
RecorderState record_given_up(RecorderState state);

#endif
