// bench/frame_log_bench.cpp - benchmark: the frame log beside one cell write a column, one row a record.
// It also says where the processor time of the main thread goes at several loads. Runs in the folder
// of the interface files, on an X display (tools/with_display will do).
// Thread: main thread, and one that plays the receive worker.
// SPDX-License-Identifier: MIT
#include "service/apipart.h"
#include "service/traffic_queues.h"

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "bench/windows.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kRowsTimed = 50'000;
constexpr int kBacklogPerRing = kRingSlots - 1;
constexpr guint kRunLength_ms = 5000;

double ms_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Classic frames, and every fourth one a CAN FD frame of 64 bytes.
UPBS_INFO sample_record(int number) {
    UPBS_INFO record{};
    std::snprintf(record.now_time, sizeof record.now_time, "12:34:56:789");
    CAN_FRAME_INFO& frame = record.frame_info;
    std::snprintf(frame.recv_time, sizeof frame.recv_time, "12:34:56:789");
    const bool is_fd = number % 4 == 0;
    frame.CAN_port = number % 2;
    frame.id_type = number % 3 == 0 ? TAVU_EID : TAVU_SID;
    frame.id = static_cast<unsigned>(number) & 0x7FFU;
    frame.fdf = is_fd ? TAVU_FDF_ON : TAVU_FDF_OFF;
    frame.dlc = is_fd ? 15 : 8;
    for (unsigned char& byte : frame.data) {
        byte = static_cast<unsigned char>(number++);
    }
    return record;
}

// ---- The naive way -------------------------------------------------------------------------

int naive_rows = 0;
int naive_count = 0;

void naive_insert(const UPBS_INFO& record, bool is_recv) {
    if (naive_rows == kLogRowsMax) {
        naive_rows = 0;
        gtk_list_store_clear(store);
    }
    FRAME_TEXTS texts;
    frame_texts({record, is_recv, ++naive_rows}, &texts);
    GtkTreeIter row;
    gtk_list_store_append(store, &row);
    for (int column = 0; column < COL_NUM; ++column) {
        gtk_list_store_set(store, &row, column, texts.cell[column], -1);
    }
    char count[12];
    std::snprintf(count, sizeof count, "%d", ++naive_count);
    gtk_label_set_text(GTK_LABEL(bs_info.label_content[BS_LABEL_RECV1_C]), count);
}

int naive_tick(gpointer /*user_data*/) {
    UPBS_INFO record;
    bool more = true;
    while (more) {
        more = false;
        if (recv_queue_pop(&record)) {
            naive_insert(record, true);
            more = true;
        }
        if (send_queue_pop(&record)) {
            naive_insert(record, false);
            more = true;
        }
    }
    return G_SOURCE_CONTINUE;
}

// ---- Measurements --------------------------------------------------------------------------

struct REDRAWS {
    Clock::time_point last;
    double longest_gap_ms;
    int count;
};
REDRAWS redraws;

int on_draw(GtkWidget* /*window*/, cairo_t* /*cairo*/, gpointer /*user_data*/) {
    redraws.longest_gap_ms = std::max(redraws.longest_gap_ms, ms_since(redraws.last));
    redraws.last = Clock::now();
    ++redraws.count;
    return FALSE;
}

int on_run_over(gpointer /*user_data*/) {
    gtk_main_quit();
    return G_SOURCE_REMOVE;
}

void empty_rings() {
    UPBS_INFO record;
    while (recv_queue_pop(&record) || send_queue_pop(&record)) {
    }
}

// Pushes `rate` records a second into the receive ring for the length of a run. It ends by itself:
// a tick that cannot keep up drains for as long as records come.
void feed(int rate) {
    const Clock::time_point start = Clock::now();
    int pushed = 0;
    while (ms_since(start) < kRunLength_ms) {
        const int due = static_cast<int>(ms_since(start) / 1000.0 * rate);
        for (; pushed < due; ++pushed) {
            recv_queue_push(sample_record(pushed).frame_info);
        }
        std::this_thread::sleep_for(milliseconds{1});
    }
}

REDRAWS redraws_at(int rate, GSourceFunc tick) {
    redraws = {Clock::now(), 0, 0};
    std::thread feeder(feed, rate);
    const guint timer = g_timeout_add(1, tick, nullptr);
    g_timeout_add_full(G_PRIORITY_HIGH, kRunLength_ms, on_run_over, nullptr, nullptr);
    gtk_main();
    g_source_remove(timer);
    redraws.longest_gap_ms = std::max(redraws.longest_gap_ms, ms_since(redraws.last));
    feeder.join();
    empty_rings();
    return redraws;
}

// ---- Where the processor time goes ------------------------------------------------------------

// Milliseconds of the main thread's processor time.
struct SPENDING {
    double tick;    // display timer
    double update;  // redraws before their layout, when the view measures new rows
    double layout;
    double paint;
    double whole;
    int redraw_cnt;
};
SPENDING spending;
double mark_ms;  // processor time when the phase of the redraw began

double thread_ms() {
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6;
}

void end_phase(double* phase) {
    const double now_ms = thread_ms();
    *phase += now_ms - mark_ms;
    mark_ms = now_ms;
}

void on_before_paint(GdkFrameClock* /*clock*/, gpointer /*user_data*/) {
    mark_ms = thread_ms();
    ++spending.redraw_cnt;
}

void on_phase_over(GdkFrameClock* /*clock*/, gpointer phase) {
    end_phase(static_cast<double*>(phase));
}

int timed_tick(gpointer user_data) {
    const double start_ms = thread_ms();
    update_BS_frame(user_data);
    spending.tick += thread_ms() - start_ms;
    return G_SOURCE_CONTINUE;
}

// Connected after the toolkit's own handlers, so each runs when its phase is over.
void watch_redraws() {
    GdkFrameClock* const clock = gtk_widget_get_frame_clock(windows->main_window);
    g_signal_connect(clock, "before-paint", G_CALLBACK(on_before_paint), nullptr);
    g_signal_connect_after(clock, "update", G_CALLBACK(on_phase_over), &spending.update);
    g_signal_connect_after(clock, "layout", G_CALLBACK(on_phase_over), &spending.layout);
    g_signal_connect_after(clock, "after-paint", G_CALLBACK(on_phase_over), &spending.paint);
}

void print_spending(int rate) {
    spending = {};
    const double start_ms = thread_ms();
    redraws_at(rate, timed_tick);
    spending.whole = thread_ms() - start_ms;
    const double redraw = spending.update + spending.layout + spending.paint;
    const double share = 100.0 / kRunLength_ms;
    std::printf(
        "at %6d records/s  a redraw costs %.2f ms: row heights %.0f %%, layout %.0f %%, painting "
        "%.0f %%\n",
        rate, redraw / spending.redraw_cnt, 100 * spending.update / redraw,
        100 * spending.layout / redraw, 100 * spending.paint / redraw);
    std::printf(
        "  per cent of a core           %10.1f, of it display timer %.1f, %.0f redraws/s %.1f, "
        "row heights between redraws and the rest %.1f\n",
        spending.whole * share, spending.tick * share, spending.redraw_cnt * 1000.0 / kRunLength_ms,
        redraw * share, (spending.whole - spending.tick - redraw) * share);
}

double rows_per_second(void (*insert)(const UPBS_INFO&, bool)) {
    const Clock::time_point start = Clock::now();
    for (int i = 0; i < kRowsTimed; ++i) {
        insert(sample_record(i), true);
    }
    return kRowsTimed / ms_since(start) * 1000.0;
}

double backlog_ms(GSourceFunc tick) {
    empty_rings();
    for (int i = 0; i < kBacklogPerRing; ++i) {
        const CAN_FRAME_INFO frame = sample_record(i).frame_info;
        recv_queue_push(frame);
        send_queue_push(frame);
    }
    const Clock::time_point start = Clock::now();
    tick(nullptr);
    return ms_since(start);
}

void insert_single(const UPBS_INFO& record, bool is_recv) {
    list_insert(record, is_recv);
}

void show_window(int* argc, char*** argv) {
    show_main_window(argc, argv);
    while (gtk_events_pending() != FALSE) {
        gtk_main_iteration();
    }
    g_signal_connect_after(windows->main_window, "draw", G_CALLBACK(on_draw), nullptr);
    watch_redraws();
}

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    show_window(&argc, &argv);

    for (const int rate : {0, 200, 2'000, 10'000, 40'000}) {
        print_spending(rate);
    }

    const double rows_naive = rows_per_second(naive_insert);
    const double rows = rows_per_second(insert_single);
    std::printf("rows one by one                %10.0f /s   naive %10.0f /s   ratio %.1f\n", rows,
                rows_naive, rows / rows_naive);

    const double backlog_naive = backlog_ms(naive_tick);
    const double backlog = backlog_ms(update_BS_frame);
    std::printf("backlog of %d records     %10.1f ms   naive %10.1f ms   ratio %.0f\n",
                2 * kBacklogPerRing, backlog, backlog_naive, backlog_naive / backlog);

    for (const int rate : {1'000, 8'000, 45'000, 150'000}) {
        const REDRAWS naive = redraws_at(rate, naive_tick);
        const REDRAWS ours = redraws_at(rate, update_BS_frame);
        const double seconds = kRunLength_ms / 1000.0;
        std::printf("redraws at %6d records/s   %10.1f /s   naive %10.1f /s   ratio %.1f\n", rate,
                    ours.count / seconds, naive.count / seconds,
                    static_cast<double>(ours.count) / naive.count);
        std::printf("  longest gap                  %10.0f ms   naive %10.0f ms\n",
                    ours.longest_gap_ms, naive.longest_gap_ms);
    }
    return EXIT_SUCCESS;
}
