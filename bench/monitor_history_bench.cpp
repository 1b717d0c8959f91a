// bench/monitor_history_bench.cpp - benchmark: the monitor's trace page on a history of a million frames.
// Each figure stands beside a bare loop over the same records in the same run. Runs in the folder of
// the interface files, on an X display (tools/with_display will do).
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/filter.h"
#include "gui/monitor/history.h"
#include "gui/monitor/trace_search.h"

#include "service/apipart.h"
#include "service/traffic_queues.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "bench/windows.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kFrames = 1'000'000;
constexpr int kPlaces = 200;                         // of scrolling end to end
constexpr double kLimit_ms = 60'000;                 // of anything that is waited for
constexpr const char* kFilter = "can2";              // passes a hundredth
constexpr const char* kBytes = "FF FE FD FC FB FA";  // which no frame has

double ms_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// A hundred identifiers; every fourth frame has 64 bytes, every other a stamp of the module.
trace::Record sample(std::size_t number) {
    trace::Record record;
    record.time_us = trace::time_now_us();
    CAN_FRAME_INFO& frame = record.frame;
    const bool is_fd = number % 4 == 0;
    frame.CAN_port = number % 100 == 99 ? TAVU_CAN_2 : TAVU_CAN_1;
    frame.id_type = TAVU_SID;
    frame.id = 0x100 + static_cast<unsigned>(number % 100);
    frame.fdf = is_fd ? TAVU_FDF_ON : TAVU_FDF_OFF;
    frame.dlc = is_fd ? 15 : 8;
    frame.data[number % 8] = static_cast<unsigned char>(number >> 4);
    frame.timestamp.second = static_cast<uint32_t>(number % 2);
    return record;
}

// ---- Widgets -------------------------------------------------------------------------------

bool says(const char* id, std::string_view part) {
    const std::string_view text = gtk_label_get_text(GTK_LABEL(in_monitor(id)));
    return text.find(part) != std::string_view::npos;
}

// The bar of the table stands beside what scrolls sideways.
GtkAdjustment* rows_of_table() {
    GtkWidget* line = gtk_widget_get_parent(gtk_widget_get_parent(in_monitor("trace_table")));
    GtkAdjustment* rows = nullptr;
    const auto take = [](GtkWidget* child, gpointer found) {
        if (GTK_IS_SCROLLBAR(child)) {
            *static_cast<GtkAdjustment**>(found) = gtk_range_get_adjustment(GTK_RANGE(child));
        }
    };
    gtk_container_foreach(GTK_CONTAINER(line), take, &rows);
    return rows;
}

// ---- Measurements --------------------------------------------------------------------------

// How long the main loop was busy at a time, until a condition held.
struct Pauses {
    double whole_ms = 0;
    double longest_ms = 0;
};

Pauses loop_until(const std::function<bool()>& is_done) {
    Pauses pauses;
    const Clock::time_point start = Clock::now();
    while (!is_done() && ms_since(start) < kLimit_ms) {
        const Clock::time_point turn = Clock::now();
        g_main_context_iteration(nullptr, FALSE);
        pauses.longest_ms = std::max(pauses.longest_ms, ms_since(turn));
    }
    if (!is_done()) {
        std::fprintf(stderr, "The page does not come to an end.\n");
        std::exit(EXIT_FAILURE);
    }
    pauses.whole_ms = ms_since(start);
    return pauses;
}

void print(const char* what, const Pauses& pauses, double bare_ms) {
    std::printf("%-28s %8.1f ms, longest pause %5.1f ms   bare loop %6.1f ms   ratio %.1f\n", what,
                pauses.whole_ms, pauses.longest_ms, bare_ms, pauses.whole_ms / bare_ms);
}

template <typename Matches>
double bare_ms(const std::vector<trace::Record>& records, Matches matches) {
    const Clock::time_point start = Clock::now();
    const auto count = std::count_if(records.begin(), records.end(), matches);
    const double whole_ms = ms_since(start);
    std::printf("  (of %zu frames the bare loop takes %td)\n", records.size(), count);
    return whole_ms;
}

void bench_add(const std::vector<trace::Record>& records) {
    const HistoryPointer history = history_make();
    Clock::time_point start = Clock::now();
    for (const trace::Record& record : records) {
        history_add(history.get(), record);
    }
    const double ours_ms = ms_since(start);
    std::vector<trace::Record> copies(records.size());
    start = Clock::now();
    std::copy(records.begin(), records.end(), copies.begin());
    const double copy_ms = ms_since(start);
    std::printf(
        "a frame kept                 %8.0f ns, %.1f bytes   copied as it is %.0f ns, %zu bytes   "
        "ratio %.2f\n",
        ours_ms * 1e6 / kFrames, static_cast<double>(history_bytes(history.get())) / kFrames,
        copy_ms * 1e6 / kFrames, sizeof(trace::Record), ours_ms / copy_ms);
}

void fill_page(const std::vector<trace::Record>& records) {
    for (const trace::Record& record : records) {
        QUEUED_INFO queued{};
        queued.record.frame_info = record.frame;
        queued.time_us = record.time_us;
        monitor_add(queued, true);
    }
    loop_until([] { return says("trace_status", "1000000 frames"); });
}

void bench_filter(const std::vector<trace::Record>& records) {
    FrameFilter filter;
    FilterError error;
    filter_parse(kFilter, &filter, &error);
    const double bare = bare_ms(records, [&filter](const trace::Record& record) {
        return filter_matches(filter, record.frame, record.is_sent);
    });
    const std::string all = std::to_string(kFrames / 100) + " pass the filter";
    gtk_entry_set_text(GTK_ENTRY(in_monitor("filter_entry")), kFilter);
    print("filtered", loop_until([&all] { return says("trace_status", all); }), bare);
    gtk_entry_set_text(GTK_ENTRY(in_monitor("filter_entry")), "");
    loop_until([] { return !says("trace_status", "pass the filter"); });
}

void bench_search(const std::vector<trace::Record>& records) {
    SearchFor wanted;
    std::string fault;
    search_parse(kSearchData, kBytes, &wanted, &fault);
    const double bare = bare_ms(
        records, [&wanted](const trace::Record& record) { return search_matches(wanted, record); });
    gtk_button_clicked(GTK_BUTTON(in_monitor("trace_find")));
    gtk_entry_set_text(GTK_ENTRY(in_monitor("find_entry")), kBytes);
    gtk_button_clicked(GTK_BUTTON(in_monitor("find_next")));
    print("searched", loop_until([] { return says("find_status", "No frame"); }), bare);
}

int drawn = 0;

gboolean on_draw(GtkWidget* /*tree*/, cairo_t* /*cairo*/, gpointer /*user_data*/) {
    ++drawn;
    return FALSE;
}

// The loop beside it draws the same rows without scrolling.
void bench_scrolling() {
    GtkWidget* tree = in_monitor("trace_table");
    GtkAdjustment* rows = rows_of_table();
    g_signal_connect_after(tree, "draw", G_CALLBACK(on_draw), nullptr);
    Pauses all[2];
    for (int scrolls = 0; scrolls < 2; ++scrolls) {
        for (int place = 0; place < kPlaces; ++place) {
            drawn = 0;
            if (scrolls != 0) {
                gtk_adjustment_set_value(rows, static_cast<double>(kFrames) * place / kPlaces);
            }
            gtk_widget_queue_draw(tree);
            const Pauses pauses = loop_until([] { return drawn > 0; });
            all[scrolls].whole_ms += pauses.whole_ms;
            all[scrolls].longest_ms = std::max(all[scrolls].longest_ms, pauses.longest_ms);
        }
    }
    print("scrolled to 200 places", all[1], all[0].whole_ms);
}

void show_windows(int* argc, char*** argv) {
    show_main_window(argc, argv);
    monitor_open();
    gtk_notebook_set_current_page(GTK_NOTEBOOK(in_monitor("monitor_notebook")), 0);
    loop_until([] { return gtk_widget_get_allocated_height(in_monitor("trace_table")) > kPlaces; });
}

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    g_setenv("XDG_CONFIG_HOME", g_get_tmp_dir(), TRUE);
    std::vector<trace::Record> records(kFrames);
    for (std::size_t i = 0; i < kFrames; ++i) {
        records[i] = sample(i);
    }
    bench_add(records);
    show_windows(&argc, &argv);
    fill_page(records);
    bench_scrolling();
    bench_filter(records);
    bench_search(records);
    return EXIT_SUCCESS;
}
