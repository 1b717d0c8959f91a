// gui/monitor/record_page.cpp - user interface: record page of the monitor window.
// Uses gui/monitor/recorder.h, which does the writing, gui/monitor/record_dialog.h,
// gui/monitor/record_words.h and, when the page goes, gui/monitor/record_finish.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/module_watch.h"
#include "gui/monitor/filter_bar.h"
#include "gui/monitor/page.h"
#include "gui/monitor/record_dialog.h"
#include "gui/monitor/record_finish.h"
#include "gui/monitor/record_words.h"
#include "gui/monitor/recorder.h"
#include "gui/monitor/settings_file.h"
#include "gui/widgets.h"

#include <array>
#include <cerrno>
#include <utility>

namespace {

using trace::CaptureFormat;

constexpr const char* kGroup = "record";
constexpr const char* kNothing = "–";
constexpr gint64 kPatience_us = 2 * G_USEC_PER_SEC;  // then giving up is offered
constexpr gint64 kShowPeriod_us = G_USEC_PER_SEC / 10;
constexpr gint64 kRatePeriod_us = G_USEC_PER_SEC;

// Filled while the window is open.
struct RecordPage {
    GtkWidget* start_btn;
    GtkWidget* give_up_btn;
    GtkWidget* format;
    GtkWidget* filter_chk;
    GtkWidget* state;
    GtkWidget* bar;  // says what goes wrong
    GtkWidget* fault;
    GtkWidget* path;
    GtkWidget* frames;
    GtkWidget* size;
    GtkWidget* duration;
    GtkWidget* rate;
    GtkWidget* lost;
    GtkWidget* waiting;
    GtkWidget* free;
};
RecordPage page{};

constexpr WidgetField kFields[] = {
    {"record_start_btn", &page.start_btn}, {"record_give_up_btn", &page.give_up_btn},
    {"record_format_cbox", &page.format},  {"record_filter_chk", &page.filter_chk},
    {"record_state", &page.state},         {"record_bar", &page.bar},
    {"record_fault", &page.fault},         {"record_path", &page.path},
    {"record_frames", &page.frames},       {"record_size", &page.size},
    {"record_duration", &page.duration},   {"record_rate", &page.rate},
    {"record_lost", &page.lost},           {"record_waiting", &page.waiting},
    {"record_free", &page.free},
};
static_assert(fills_all_but<RecordPage>(0, kFields));

// Rows of the combo.
enum { kRowLog, kRowPcap };

// The recording that goes on; without one, `recorder` is null.
struct Recording {
    RecorderPointer recorder;
    std::string path;
    bool is_filtered = false;
    FrameFilter filter;  // as it was at the start
    gint64 begin_us = 0;
    gint64 stop_us = 0;  // when the user stopped it, 0: not yet
    LossRows losses_at_begin{};
    std::string lost_before;  // on the way to the recording, until it was stopped
    gint64 shown_us = 0;
    gint64 rate_from_us = 0;
    std::uint64_t rate_from_cnt = 0;
    double frames_per_s = 0;
};
Recording recording;
std::string folder;  // of the last recording

RecordFacts facts_of() {
    return {.path = recording.path,
            .duration_us = recording.stop_us - recording.begin_us,
            .lost_before = recording.lost_before};
}

// ---- Words ----

std::string size_text(std::int64_t bytes) {
    const GText text(g_format_size(static_cast<guint64>(bytes)));
    return text.get();
}

// The disk takes its time after a stop.
bool is_late() {
    return recording.stop_us != 0 && g_get_monotonic_time() - recording.stop_us > kPatience_us;
}

std::string phase_text(const RecorderState& state) {
    switch (state.phase) {
        case RecorderPhase::kOpening:
            return "Opening the file…";
        case RecorderPhase::kRecording:
            return "Recording.";
        default:
            return is_late()
                       ? "Finishing… The disk is slow; wait, or give up what it has not taken."
                       : "Finishing…";
    }
}

// ---- What is shown ----

void show(GtkWidget* label, const std::string& text) {
    if (text != gtk_label_get_text(GTK_LABEL(label))) {
        gtk_label_set_text(GTK_LABEL(label), text.c_str());
    }
}

void show_fault(const std::string& text) {
    if (!text.empty()) {
        show(page.fault, text);
    }
    gtk_widget_set_visible(page.bar, text.empty() ? FALSE : TRUE);
}

void show_values(const RecorderState& state) {
    const gint64 until_us = recording.stop_us == 0 ? g_get_monotonic_time() : recording.stop_us;
    const GText rate(g_strdup_printf("%.0f frames a second", recording.frames_per_s));
    show(page.frames, std::to_string(state.written));
    show(page.size, size_text(static_cast<std::int64_t>(state.bytes)));
    show(page.duration, duration_text(until_us - recording.begin_us));
    show(page.rate, recording.stop_us == 0 ? rate.get() : kNothing);
    const std::string lost = of_count(state.lost, " frame", " frames");
    show(page.lost, recording.lost_before.empty()
                        ? lost
                        : lost + "; on the way to the recording: " + recording.lost_before);
    show(page.waiting, of_count(state.waiting, " frame", " frames"));
    show(page.free, state.free_bytes < 0 ? kNothing : size_text(state.free_bytes));
}

// Which controls can be used.
void show_controls() {
    const bool is_on = recording.recorder != nullptr;
    const bool is_stopped = is_on && recording.stop_us != 0;
    gtk_button_set_label(GTK_BUTTON(page.start_btn),
                         is_on ? "_Stop recording" : "_Start recording…");
    gtk_widget_set_tooltip_text(page.start_btn,
                                is_on ? "Writes what is still in memory and closes the file"
                                      : "Asks for a file and writes every frame to it from then "
                                        "on, whatever page is shown");
    gtk_widget_set_sensitive(page.start_btn, is_stopped ? FALSE : TRUE);
    gtk_widget_set_sensitive(page.format, is_on ? FALSE : TRUE);
    gtk_widget_set_sensitive(page.filter_chk, is_on ? FALSE : TRUE);
    gtk_widget_set_visible(page.give_up_btn, is_stopped && is_late() ? TRUE : FALSE);
}

// In the bar of the main window, which is seen whatever page is shown, and on the page.
void tell(const RecorderState& state) {
    const std::string text = record_trouble_sentence(recording.path, state);
    show_fault(text);
    record_notice(text, text.empty() ? "" : record_whole_name(recording.path));
}

// Once a second, or the numbers in the words would flicker; what is new at once.
void measure_and_tell(const RecorderState& state, gint64 now_us) {
    const gint64 passed_us = now_us - recording.rate_from_us;
    if (passed_us >= kRatePeriod_us) {
        const auto frames = static_cast<double>(state.taken - recording.rate_from_cnt);
        recording.frames_per_s = frames * G_USEC_PER_SEC / static_cast<double>(passed_us);
        recording.rate_from_us = now_us;
        recording.rate_from_cnt = state.taken;
        tell(state);
    } else if (gtk_widget_get_visible(page.bar) == FALSE && !record_trouble(state).empty()) {
        tell(state);
    }
}

// ---- Start and stop ----

void start(const std::string& path, CaptureFormat format) {
    if (record_is_finishing(path)) {  // two writers would spoil it
        monitor_say(record_base_name(path) +
                    " is still being written from an earlier recording. "
                    "Wait until it is finished, or choose another file.");
        return;
    }
    const GText directory(g_path_get_dirname(path.c_str()));
    folder = directory.get();
    gtk_combo_box_set_active(GTK_COMBO_BOX(page.format),
                             format == CaptureFormat::kPcap ? kRowPcap : kRowLog);
    recording = {};
    recording.path = path;
    recording.is_filtered = is_checked(page.filter_chk);
    recording.filter = monitor_filter();
    recording.losses_at_begin = losses_in_all();
    recording.begin_us = g_get_monotonic_time();
    recording.rate_from_us = recording.begin_us;
    recording.recorder = recorder_start({.path = path, .format = format});
    if (recording.recorder == nullptr) {
        monitor_say(record_no_file(path, EAGAIN));
        return;
    }
    monitor_say("");
    const std::string name = record_whole_name(path);
    show(page.path, name);
    gtk_widget_set_tooltip_text(page.path, name.c_str());
    show(page.state, phase_text({}));
    record_notice_begin();
    tell({});
    show_values({});
    show_controls();
}

// Frames that a full ring or a damaged line costs never reach the recorder.
void count_losses() {
    if (recording.stop_us == 0) {
        recording.lost_before = loss_words_between(recording.losses_at_begin, losses_in_all());
    }
}

void stop() {
    count_losses();
    recorder_stop(recording.recorder.get());
    recording.stop_us = g_get_monotonic_time();
    show_controls();
}

// The recorder is through, or the user does not wait for it any longer.
void end(const RecorderState& state) {
    count_losses();
    if (recording.stop_us == 0) {
        recording.stop_us = g_get_monotonic_time();
    }
    recording.recorder.reset();
    tell(state);
    record_notice("", "");
    show_values(state);
    if (state.phase == RecorderPhase::kFailed) {
        const std::string text = record_no_file(recording.path, state.error);
        show(page.state, text);
        monitor_say(text);
    } else {
        show(page.state, record_result(facts_of(), state));
    }
    show_controls();
}

void on_start(GtkWidget* /*button*/, gpointer /*user_data*/) {
    if (recording.recorder == nullptr) {
        const bool is_pcap = gtk_combo_box_get_active(GTK_COMBO_BOX(page.format)) == kRowPcap;
        record_dialog_open(folder, is_pcap ? CaptureFormat::kPcap : CaptureFormat::kLog, start);
    } else {
        stop();
    }
}

void on_give_up(GtkWidget* /*button*/, gpointer /*user_data*/) {
    end(record_given_up(recorder_state(recording.recorder.get())));
}

// ---- The page ----

void open(GtkBuilder* builder) {
    lookup_all(builder, kFields);
    recording = {};
    g_signal_connect(page.start_btn, "clicked", G_CALLBACK(on_start), nullptr);
    g_signal_connect(page.give_up_btn, "clicked", G_CALLBACK(on_give_up), nullptr);
}

// The file is finished without the page; what is missing at the end is told in the main window.
void close() {
    record_dialog_close();
    if (recording.recorder == nullptr) {
        return;
    }
    if (recording.stop_us == 0) {
        stop();
    }
    record_finish(std::move(recording.recorder), facts_of());
    record_notice("", "");
}

void add(const trace::Record& record) {
    if (recording.recorder != nullptr &&
        (!recording.is_filtered ||
         filter_matches(recording.filter, record.frame, record.is_sent))) {
        recorder_add(recording.recorder.get(), record);
    }
}

void refresh(bool is_shown) {
    if (recording.recorder == nullptr) {
        return;
    }
    recorder_flush(recording.recorder.get());
    const RecorderState state = recorder_state(recording.recorder.get());
    if (state.phase == RecorderPhase::kEnded || state.phase == RecorderPhase::kFailed) {
        end(state);
        return;
    }
    const gint64 now_us = g_get_monotonic_time();
    measure_and_tell(state, now_us);
    if (is_shown && now_us - recording.shown_us >= kShowPeriod_us) {
        recording.shown_us = now_us;
        count_losses();
        show(page.state, phase_text(state));
        show_values(state);
        show_controls();
    }
}

void load(GKeyFile* settings) {
    if (const GText text = setting_text(settings, kGroup, "folder")) {
        folder = text.get();
    }
    gtk_combo_box_set_active(GTK_COMBO_BOX(page.format),
                             setting_int(settings, kGroup, "format", kRowLog, kRowPcap, kRowLog));
    set_checked(page.filter_chk, setting_bool(settings, kGroup, "filtered", false));
}

void save(GKeyFile* settings) {
    if (g_utf8_validate(folder.c_str(), -1, nullptr) != FALSE) {  // the file is UTF-8
        g_key_file_set_string(settings, kGroup, "folder", folder.c_str());
    }
    g_key_file_set_integer(settings, kGroup, "format",
                           gtk_combo_box_get_active(GTK_COMBO_BOX(page.format)));
    g_key_file_set_boolean(settings, kGroup, "filtered",
                           is_checked(page.filter_chk) ? TRUE : FALSE);
}

}  // namespace

const MonitorPage kRecordPage{
    .id = "record",
    .title = "R_ecord",
    .open = open,
    .close = close,
    .add = add,
    .refresh = refresh,
    .clear = nullptr,
    .filter_changed = nullptr,
    .load = load,
    .save = save,
};
