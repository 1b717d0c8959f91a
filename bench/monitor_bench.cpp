// bench/monitor_bench.cpp - benchmark: both windows under load, with the monitor on each of its pages and without,
// and while it records.
// Runs in the folder of the interface files, on an X display (tools/with_display will do).
// Thread: main thread, and one that plays the receive worker.
// SPDX-License-Identifier: MIT
#include "service/apipart.h"
#include "service/traffic_queues.h"

#include <glib/gstdio.h>

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>

#include "bench/windows.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kRate = 45'000;  // frames/s: both channels at 1 Mbit/s, full
constexpr guint kRunLength_ms = 6000;
constexpr std::array kPages{"trace", "identifiers", "bus", "transmit", "record"};

double ms_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double thread_ms() {
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6;
}

// A hundred identifiers on two channels, of both types; every fourth frame has 64 bytes.
CAN_FRAME_INFO sample_frame(int number) {
    CAN_FRAME_INFO frame{};
    std::snprintf(frame.recv_time, sizeof frame.recv_time, "12:34:56:789");
    const bool is_fd = number % 4 == 0;
    frame.CAN_port = number % 2;
    frame.id_type = number % 3 == 0 ? TAVU_EID : TAVU_SID;
    frame.id = 0x100 + static_cast<unsigned>(number) % 100;
    frame.fdf = is_fd ? TAVU_FDF_ON : TAVU_FDF_OFF;
    frame.dlc = is_fd ? 15 : 8;
    frame.data[number % 8] = static_cast<unsigned char>(number >> 4);
    return frame;
}

// ---- What is measured ----------------------------------------------------------------------

// Redraws of a window.
struct Redraws {
    Clock::time_point last;
    double longest_gap_ms = 0;
    int count = 0;

    void begin() { *this = {Clock::now(), 0, 0}; }
    void end() { longest_gap_ms = std::max(longest_gap_ms, ms_since(last)); }
};
Redraws main_redraws;
Redraws monitor_redraws;

gboolean on_draw(GtkWidget* /*window*/, cairo_t* /*cairo*/, gpointer redraws) {
    auto* seen = static_cast<Redraws*>(redraws);
    seen->end();
    seen->last = Clock::now();
    ++seen->count;
    return FALSE;
}

struct Run {
    Redraws main;
    Redraws monitor;
    double processor = 0;  // share of a core, main thread
    int pushed = 0;
};

// Pushes into the receive ring for the length of a run. Result: how many.
int feed() {
    const Clock::time_point start = Clock::now();
    int pushed = 0;
    while (ms_since(start) < kRunLength_ms) {
        const int due = static_cast<int>(ms_since(start) / 1000.0 * kRate);
        for (; pushed < due; ++pushed) {
            recv_queue_push(sample_frame(pushed));
        }
        std::this_thread::sleep_for(milliseconds{1});
    }
    return pushed;
}

gboolean on_run_over(gpointer /*user_data*/) {
    gtk_main_quit();
    return G_SOURCE_REMOVE;
}

Run run() {
    Run result;
    main_redraws.begin();
    monitor_redraws.begin();
    const double start_ms = thread_ms();
    std::thread feeder([&result] { result.pushed = feed(); });
    g_timeout_add_full(G_PRIORITY_HIGH, kRunLength_ms, on_run_over, nullptr, nullptr);
    gtk_main();
    result.processor = (thread_ms() - start_ms) / kRunLength_ms;
    main_redraws.end();
    monitor_redraws.end();
    result.main = main_redraws;
    result.monitor = monitor_redraws;
    feeder.join();
    return result;
}

void settle() {
    const Clock::time_point start = Clock::now();
    while (ms_since(start) < 500) {
        g_main_context_iteration(nullptr, TRUE);
    }
}

// ---- A recording ---------------------------------------------------------------------------

GtkWidget* file_dialog() {
    GtkWidget* dialog = nullptr;
    GList* all = gtk_window_list_toplevels();
    for (const GList* at = all; at != nullptr; at = at->next) {
        dialog = GTK_IS_FILE_CHOOSER(at->data) ? GTK_WIDGET(at->data) : dialog;
    }
    g_list_free(all);
    return dialog;
}

void press(const char* id) {
    gtk_button_clicked(GTK_BUTTON(in_monitor(id)));
    settle();
}

// Starts a recording as a user does.
void record_to(const std::string& path) {
    press("record_start_btn");
    GtkFileChooser* chooser = GTK_FILE_CHOOSER(file_dialog());
    const std::size_t slash = path.rfind('/');
    gtk_file_chooser_set_current_folder(chooser, path.substr(0, slash).c_str());
    gtk_file_chooser_set_current_name(chooser, path.substr(slash + 1).c_str());
    settle();
    gtk_dialog_response(GTK_DIALOG(chooser), GTK_RESPONSE_OK);
    settle();
}

std::ptrdiff_t lines_of(const std::string& path) {
    std::ifstream file(path);
    return std::count(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>(), '\n');
}

// ---- Runs ----------------------------------------------------------------------------------

void print(const char* what, const Run& seen, const Run& without) {
    const double seconds = kRunLength_ms / 1000.0;
    std::printf("%-12s main %5.1f redraws/s, longest gap %4.0f ms", what, seen.main.count / seconds,
                seen.main.longest_gap_ms);
    if (seen.monitor.count > 0) {
        std::printf("; monitor %5.1f redraws/s, longest gap %4.0f ms", seen.monitor.count / seconds,
                    seen.monitor.longest_gap_ms);
    }
    std::printf("; main thread %3.0f %% of a core, ratio %.2f\n", 100 * seen.processor,
                seen.processor / without.processor);
}

int run_page(const char* id, const Run& without) {
    GtkWidget* notebook = in_monitor("monitor_notebook");
    gtk_notebook_set_current_page(GTK_NOTEBOOK(notebook),
                                  gtk_notebook_page_num(GTK_NOTEBOOK(notebook), in_monitor(id)));
    gtk_button_clicked(GTK_BUTTON(in_monitor("monitor_clear_btn")));
    settle();
    const Run seen = run();
    settle();
    print(id, seen, without);
    std::printf("             pushed %d; the monitor: %s; ring full %llu\n", seen.pushed,
                gtk_label_get_text(GTK_LABEL(in_monitor("monitor_status"))),
                static_cast<unsigned long long>(traffic_loss().recv_ring_full));
    return seen.pushed;
}

void run_recording(const Run& without) {
    const std::string path =
        std::string(g_get_tmp_dir()) + "/monitor_bench-" + std::to_string(getpid()) + ".log";
    record_to(path);
    std::printf("recording, ");
    const int pushed = run_page("record", without);
    press("record_start_btn");  // which is Stop now
    std::printf("             pushed %d; in the file %td\n", pushed, lines_of(path));
    g_remove(path.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    start_up(&argc, &argv);
    g_signal_connect_after(windows->main_window, "draw", G_CALLBACK(on_draw), &main_redraws);
    settle();
    std::printf("%d frames/s\n", kRate);
    const Run without = run();
    settle();
    print("no monitor", without, without);
    monitor_open();
    g_signal_connect_after(monitor_window(), "draw", G_CALLBACK(on_draw), &monitor_redraws);
    for (const char* id : kPages) {
        run_page(id, without);
    }
    run_recording(without);
    return EXIT_SUCCESS;
}
