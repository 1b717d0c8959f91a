// gui/monitor/record_words.cpp - user interface: what is said of a recording.
// Uses gui/monitor/recorder.h for what there is to say.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/record_words.h"

#include "gui/widgets.h"

#include <cerrno>

namespace {

std::string missing(const RecorderState& state) {
    return of_count(state.lost, " frame is missing", " frames are missing");
}

// Why writes fail or failed, and what to do while they do.
struct Reason {
    std::string now;
    std::string past;
    std::string advice;
};

Reason reason_of(int error) {
    const std::string room = "make room or stop the recording";
    const std::string quoted = std::string(" \"") + g_strerror(error) + '"';
    switch (error) {
        case ENOSPC:
            return {"the disk is full", "the disk was full", room};
        case EDQUOT:
            return {"your share of the disk is used up", "your share of the disk was used up",
                    room};
        case EFBIG:
            return {"the file may not grow any more", "the file could not grow any more",
                    "stop the recording and begin another one"};
        case EPIPE:
            return {"nobody reads the pipe any more", "nobody read the pipe any more",
                    "stop the recording"};
        default:
            return {"the disk reports" + quoted, "the disk reported" + quoted,
                    "stop the recording and choose another folder"};
    }
}

}  // namespace

std::string of_count(std::uint64_t count, const char* one, const char* more) {
    return std::to_string(count) + (count == 1 ? one : more);
}

std::string record_base_name(const std::string& path) {
    const GText base(g_filename_display_basename(path.c_str()));
    return base.get();
}

std::string record_whole_name(const std::string& path) {
    const GText name(g_filename_display_name(path.c_str()));
    return name.get();
}

std::string duration_text(gint64 duration_us) {
    const gint64 seconds = duration_us / G_USEC_PER_SEC;
    const GText text(g_strdup_printf("%" G_GINT64_FORMAT ":%02d:%02d", seconds / 3600,
                                     static_cast<int>(seconds / 60 % 60),
                                     static_cast<int>(seconds % 60)));
    return text.get();
}

std::string record_trouble(const RecorderState& state) {
    if (state.phase == RecorderPhase::kFailed) {
        return {};  // there is no recording
    }
    if (state.error != 0 && state.phase != RecorderPhase::kEnded) {
        const Reason reason = reason_of(state.error);
        return reason.now + ", " + missing(state) + "; " + reason.advice;
    }
    if (state.lost > 0 && state.is_out_of_memory) {
        return "there is not enough memory, " + missing(state) + "; close what you do not need";
    }
    if (state.lost > 0 && state.is_too_slow) {
        return "the disk is too slow, " + missing(state) + "; choose a folder on a faster one";
    }
    if (state.lost > 0) {
        return missing(state) + ", as " + reason_of(state.last_error).past;
    }
    if (state.last_error != 0) {
        return "the end of the file may be missing, as " + reason_of(state.last_error).past;
    }
    return {};
}

std::string record_trouble_sentence(const std::string& path, const RecorderState& state) {
    const std::string text = record_trouble(state);
    return text.empty() ? "" : "Recording to " + record_base_name(path) + ": " + text + '.';
}

std::string record_result(const RecordFacts& facts, const RecorderState& state) {
    const std::string begin = of_count(state.written, " frame", " frames") + " in " +
                              duration_text(facts.duration_us) + " recorded to " +
                              record_base_name(facts.path);
    const std::string in_file = state.lost > 0              ? ", " + missing(state) + '.'
                                : facts.lost_before.empty() ? ", none is missing."
                                                            : ".";
    return begin + in_file +
           (facts.lost_before.empty()
                ? ""
                : " Lost on the way to the recording: " + facts.lost_before + '.');
}

std::string record_no_file(const std::string& path, int error) {
    return record_base_name(path) + " cannot be created: " + g_strerror(error) +
           ". Nothing was recorded; choose another file or folder.";
}

RecorderState record_given_up(RecorderState state) {
    state.lost += state.waiting;
    state.waiting = 0;
    state.is_too_slow = true;
    return state;
}
