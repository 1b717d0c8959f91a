// tests/gui/record_page_test.cpp - test: the record page of the monitor, through its widgets.
// Uses tests/gui/ui_fixture.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/filter.h"
#include "gui/monitor/monitor.h"
#include "gui/monitor/record_finish.h"

#include "trace/record.h"

#include "tests/gui/ui_fixture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

namespace fs = std::filesystem;

bool is_answered = false;

GtkWidget* widget(const char* id) {
    return ui_script::find_by_id(id);
}

void open_page() {
    monitor_open();
    EXPECT_EQ(ui_script::why_unusable(widget("record_start_btn")), nullptr);
}

bool becomes(const char* id, const std::string& text) {
    return run_until([&] { return shown({widget(id)}) == text; });
}

bool says(const char* id, const std::string& part) {
    return run_until([&] { return shown({widget(id)}).find(part) != std::string::npos; });
}

// Presses a button of the question whether a file may be replaced, once it is asked.
gboolean answer(gpointer button) {
    if (ui_script::find_dialog_button("Replace") == nullptr) {
        return G_SOURCE_CONTINUE;
    }
    use(ui_script::find_dialog_button(static_cast<const char*>(button)));
    is_answered = true;
    return G_SOURCE_REMOVE;
}

// Answers the file dialog as a user does who types the name, and the question if one is expected.
void choose(const fs::path& path, const char* button = nullptr) {
    use(widget("record_start_btn"));
    is_answered = false;
    if (button != nullptr) {  // from the question's own main loop
        g_timeout_add(1, answer, const_cast<char*>(button));
    }
    answer_with_file(ui_script::find_file_chooser(), path);
    EXPECT_TRUE(run_until([] { return is_answered || ui_script::find_file_chooser() == nullptr; }));
}

void add_frames(int count, int channel = TAVU_CAN_1) {
    QUEUED_INFO queued{};
    queued.record.frame_info.CAN_port = channel;
    queued.record.frame_info.id_type = TAVU_SID;
    for (int i = 0; i < count; ++i) {
        queued.time_us = trace::time_now_us();
        monitor_add(queued, true);
    }
    monitor_flush();
}

std::ptrdiff_t lines_of(const fs::path& path) {
    std::ifstream file(path);
    return std::count(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>(), '\n');
}

bool closes_at_once() {
    const gint64 begin_us = g_get_monotonic_time();
    monitor_close();
    return g_get_monotonic_time() - begin_us < G_USEC_PER_SEC;
}

struct RecordPage : UiTest {
    void SetUp() override {
        UiTest::SetUp();
        open_page();
    }
    void TearDown() override {
        monitor_close();
        record_notice_begin();
        fs::remove_all(folder);
        UiTest::TearDown();
    }
    const fs::path folder = GText(g_dir_make_tmp("tavu-XXXXXX", nullptr)).get();
};

}  // namespace

TEST_F(RecordPage, RecordsFromStartToStopWhateverPageIsShownAndWhateverIsCleared) {
    const Widgets controls{widget("record_start_btn"), widget("record_format_cbox"),
                           widget("record_filter_chk"), widget("record_give_up_btn")};
    add_frames(3);
    choose(folder / "run");
    EXPECT_TRUE(becomes("record_state", "Recording."));
    EXPECT_EQ(shown(controls), "Stop recording | (candump log (.log)) | (off) | hidden");
    add_frames(1000);
    EXPECT_TRUE(becomes("record_frames", "1000"));
    use(widget("monitor_clear_btn"));
    gtk_notebook_set_current_page(GTK_NOTEBOOK(widget("monitor_notebook")), 0);
    add_frames(1000);
    EXPECT_TRUE(run_until([&] { return lines_of(folder / "run.log") == 2000; }));
    add_frames(7);
    use(controls[0]);
    EXPECT_TRUE(says("record_state", "2007 frames in 0:"));
    EXPECT_TRUE(says("record_state", "recorded to run.log, none is missing."));
    EXPECT_EQ(shown(controls), "Start recording… | candump log (.log) | off | hidden");
    EXPECT_EQ(lines_of(folder / "run.log"), 2007);
    EXPECT_EQ(shown({widget("record_lost"), widget("record_waiting")}), "0 frames | 0 frames");
}

TEST_F(RecordPage, TheEndingOfTheNameDecidesAndNoFileIsReplacedUnasked) {
    std::ofstream(folder / "run.log") << "precious";
    choose(folder / "run", "Cancel");
    gtk_dialog_response(GTK_DIALOG(ui_script::find_file_chooser()), GTK_RESPONSE_CANCEL);
    EXPECT_EQ(fs::file_size(folder / "run.log"), 8U);
    EXPECT_EQ(shown({widget("record_state")}), "Nothing is being recorded.");

    choose(folder / "run.pcap");
    EXPECT_EQ(shown({widget("record_format_cbox")}), "(pcap capture (.pcap))");
    add_frames(10);
    monitor_close();  // ends it whole
    EXPECT_TRUE(run_until([&] { return !record_is_finishing(folder / "run.pcap"); }));
    EXPECT_EQ(fs::file_size(folder / "run.pcap"), 24U + 10 * 32);
    open_page();
    EXPECT_EQ(shown({widget("record_format_cbox")}), "pcap capture (.pcap)");
    use(widget("record_start_btn"));
    EXPECT_TRUE(run_until([&] {
        GtkFileChooser* chooser = GTK_FILE_CHOOSER(ui_script::find_file_chooser());
        const GText here(gtk_file_chooser_get_current_folder(chooser));
        return here != nullptr && here.get() == folder;
    }));
    monitor_close();  // and takes the dialog with it
    EXPECT_EQ(ui_script::find_file_chooser(), nullptr);
}

TEST_F(RecordPage, FramesLostBeforeTheyReachTheRecordingAreToldWhateverIsResetMeanwhile) {
    const auto lose = [](int frames) {
        for (int lost = 0; lost < frames;) {
            lost += recv_queue_push({}) ? 0 : 1;
        }
        show_losses();
        for (UPBS_INFO left; recv_queue_pop(&left);) {
        }
    };
    lose(5);  // before the recording: not its loss
    choose(folder / "run.log");
    EXPECT_TRUE(becomes("record_state", "Recording."));
    EXPECT_TRUE(becomes("record_lost", "0 frames"));
    lose(7);
    losses_begin();
    lose(2);
    const std::string words = "9 frames came faster than the display could take them";
    EXPECT_TRUE(becomes("record_lost", "0 frames; on the way to the recording: " + words));
    use(widget("record_start_btn"));
    EXPECT_TRUE(says("record_state", "run.log. Lost on the way to the recording: " + words + "."));
    losses_begin();
}

TEST_F(RecordPage, TheFilterOfTheStartChoosesTheFrames) {
    use(widget("record_format_cbox"), "candump log (.log)");
    use(widget("filter_entry"), "can2");
    use(widget("record_filter_chk"), "on");
    choose(folder / "run.log");
    use(widget("filter_entry"), "can1");
    add_frames(10, TAVU_CAN_1);
    add_frames(20, TAVU_CAN_2);
    use(widget("record_start_btn"));
    EXPECT_TRUE(says("record_state", "frames in "));
    use(widget("record_filter_chk"), "off");
    use(widget("filter_entry"), "");
    FrameFilter filter;
    FilterError error;
    EXPECT_EQ(filter_parse("can2", &filter, &error), TAVU_SUCCESS);
    CAN_FRAME_INFO can1{};
    can1.id_type = TAVU_SID;
    EXPECT_EQ(lines_of(folder / "run.log"), filter_matches(filter, can1, false) ? 30 : 20);
}

TEST_F(RecordPage, AFileThatCannotBeCreatedIsToldAndNothingGoesOn) {
    choose("/proc/run.log");  // where not even root creates one
    EXPECT_TRUE(says("monitor_bar_text", "run.log cannot be created: No such file or directory"));
    EXPECT_EQ(shown({widget("record_start_btn")}), "Start recording…");
    EXPECT_FALSE(gtk_widget_get_visible(widget("record_bar")));
}

TEST_F(RecordPage, AFullDiskIsToldInBothWindowsUntilTheRecordingEnds) {
    fs::create_symlink("/dev/full", folder / "full.log");
    choose(folder / "full.log", "Replace");
    EXPECT_TRUE(becomes("record_state", "Recording."));
    add_frames(10);
    const std::string words =
        "Recording to full.log: the disk is full, 10 frames are missing; make room or stop the "
        "recording.";
    EXPECT_TRUE(becomes("record_fault", words));
    EXPECT_TRUE(becomes("notice_label", words));
    use(widget("record_start_btn"));
    EXPECT_TRUE(says("record_state", "0 frames in "));
    EXPECT_FALSE(gtk_widget_get_visible(widget("notice_bar")));
    EXPECT_EQ(shown({widget("record_fault")}),
              "Recording to full.log: 10 frames are missing, as the disk was full.");

    choose(folder / "full.log", "Replace");
    EXPECT_TRUE(becomes("record_state", "Recording."));
    add_frames(20);
    monitor_close();
    EXPECT_TRUE(says("notice_label", "recorded to full.log, 20 frames are missing."));
}

TEST_F(RecordPage, ADiskThatTakesNothingCanBeGivenUpAndDoesNotKeepTheWindowOpen) {
    ASSERT_EQ(mkfifo((folder / "stuck.log").c_str(), 0600), 0);
    choose(folder / "stuck.log", "Replace");
    EXPECT_TRUE(becomes("record_state", "Opening the file…"));
    add_frames(10);
    use(widget("record_start_btn"));
    EXPECT_TRUE(becomes("record_state", "Finishing…"));
    EXPECT_EQ(shown({widget("record_start_btn")}), "(Stop recording)");
    EXPECT_TRUE(becomes("record_give_up_btn", "Give up"));
    use(widget("record_give_up_btn"));
    EXPECT_TRUE(says("record_state", "recorded to stuck.log, 10 frames are missing."));
    EXPECT_EQ(shown({widget("record_start_btn")}), "Start recording…");

    choose(folder / "stuck.log", "Replace");
    EXPECT_TRUE(becomes("record_state", "Opening the file…"));
    add_frames(20);
    EXPECT_TRUE(closes_at_once());

    // It goes on being tried, beside another recording but not one to the same file.
    open_page();
    choose(folder / "stuck.log", "Replace");
    EXPECT_TRUE(says("monitor_bar_text", "stuck.log is still being written from an earlier"));
    choose(folder / "run.log");
    add_frames(5);
    use(widget("record_start_btn"));
    EXPECT_TRUE(says("record_state", "recorded to run.log, none is missing."));
    EXPECT_TRUE(becomes("notice_label", "stuck.log is still being written, as the disk is slow."));

    testing::internal::CaptureStderr();
    const gint64 begin_us = g_get_monotonic_time();
    monitor_end();
    EXPECT_LT(g_get_monotonic_time() - begin_us, 4 * G_USEC_PER_SEC);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("stuck.log, 20 frames are missing.\n"),
              std::string::npos);
    std::ifstream release_threads(folder / "stuck.log");
}

TEST_F(RecordPage, WhatASlowDiskHasNotTakenYetIsWrittenWhenTheWindowHasGone) {
    const fs::path path = folder / "slow.log";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int disk = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    choose(path, "Replace");
    EXPECT_TRUE(becomes("record_state", "Recording."));
    add_frames(20'000);
    EXPECT_TRUE(closes_at_once());
    EXPECT_TRUE(record_is_finishing(path));
    std::ptrdiff_t lines = 0;
    EXPECT_TRUE(run_until([&] {
        std::array<char, 4096> part{};
        const ssize_t bytes = read(disk, part.data(), part.size());
        lines += bytes <= 0 ? 0 : std::count(part.begin(), part.begin() + bytes, '\n');
        return bytes == 0;
    }));
    close(disk);
    EXPECT_EQ(lines, 20'000);
    EXPECT_TRUE(run_until([&] { return !record_is_finishing(path); }));
    EXPECT_FALSE(gtk_widget_get_visible(widget("notice_bar")));
}
