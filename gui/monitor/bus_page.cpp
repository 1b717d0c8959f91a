// gui/monitor/bus_page.cpp - user interface: bus page of the monitor window: rates, load, errors and losses.
// Uses gui/monitor/bus_measure.h, gui/monitor/bus_plot.h, the module's configuration and its losses.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/application.h"
#include "gui/frame_log.h"
#include "gui/module_watch.h"
#include "gui/monitor/bus_measure.h"
#include "gui/monitor/bus_plot.h"
#include "gui/monitor/page.h"
#include "gui/widgets.h"

#include <memory>

namespace {

struct SurfaceRelease {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using SurfaceRef = std::unique_ptr<cairo_surface_t, SurfaceRelease>;

// Values of a channel.
struct ChannelLabels {
    GtkWidget* bit_rate;
    GtkWidget* load;
    GtkWidget* frames;
    GtkWidget* sent_errors;
    GtkWidget* recv_errors;
    GtkWidget* state;
};

// Filled while the window is open.
struct BusWidgets {
    std::array<ChannelLabels, TAVU_CHANNEL_CNT> channels;
    GtkWidget* hint;
    GtkWidget* plot;
    GtkWidget* losses;
};
BusWidgets bus{};

constexpr WidgetField kFields[] = {
    {"bus_bit_rate_1", &bus.channels[TAVU_CAN_1].bit_rate},
    {"bus_load_1", &bus.channels[TAVU_CAN_1].load},
    {"bus_frames_1", &bus.channels[TAVU_CAN_1].frames},
    {"bus_sent_errors_1", &bus.channels[TAVU_CAN_1].sent_errors},
    {"bus_recv_errors_1", &bus.channels[TAVU_CAN_1].recv_errors},
    {"bus_state_1", &bus.channels[TAVU_CAN_1].state},
    {"bus_bit_rate_2", &bus.channels[TAVU_CAN_2].bit_rate},
    {"bus_load_2", &bus.channels[TAVU_CAN_2].load},
    {"bus_frames_2", &bus.channels[TAVU_CAN_2].frames},
    {"bus_sent_errors_2", &bus.channels[TAVU_CAN_2].sent_errors},
    {"bus_recv_errors_2", &bus.channels[TAVU_CAN_2].recv_errors},
    {"bus_state_2", &bus.channels[TAVU_CAN_2].state},
    {"bus_hint", &bus.hint},
    {"bus_plot", &bus.plot},
    {"bus_losses", &bus.losses},
};
static_assert(fills_all_but<BusWidgets>(0, kFields));

BusMeasure measure;

// The plot as last drawn. It is drawn anew with each sample, and ten times a second at most while
// the window changes its size.
constexpr gint64 kPlotPause_us = 100'000;
SurfaceRef plot_surface;
int plot_width_px = 0;
int plot_height_px = 0;
gint64 plot_drawn_us = 0;
bool is_plot_stale = true;
std::size_t shown_samples = 0;

// ---- Plot ----

void draw_plot_anew() {
    plot_width_px = gtk_widget_get_allocated_width(bus.plot);
    plot_height_px = gtk_widget_get_allocated_height(bus.plot);
    plot_surface.reset(gdk_window_create_similar_surface(
        gtk_widget_get_window(bus.plot), CAIRO_CONTENT_COLOR_ALPHA, plot_width_px, plot_height_px));
    cairo_t* cr = cairo_create(plot_surface.get());
    bus_plot_draw(cr, bus.plot, measure.history, measure.read_us);
    cairo_destroy(cr);
    plot_drawn_us = g_get_monotonic_time();
    is_plot_stale = false;
}

gboolean on_draw(GtkWidget* plot, cairo_t* cr, gpointer /*user_data*/) {
    is_plot_stale = is_plot_stale || gtk_widget_get_allocated_width(plot) != plot_width_px ||
                    gtk_widget_get_allocated_height(plot) != plot_height_px;
    const bool may_draw = g_get_monotonic_time() - plot_drawn_us >= kPlotPause_us;
    if (plot_surface == nullptr || (is_plot_stale && may_draw)) {
        draw_plot_anew();
    }
    cairo_set_source_surface(cr, plot_surface.get(), 0, 0);
    cairo_paint(cr);
    return FALSE;
}

void on_style_updated(GtkWidget* plot, gpointer /*user_data*/) {
    is_plot_stale = true;
    gtk_widget_queue_draw(plot);
}

void refresh_plot() {
    if (shown_samples != measure.reading_cnt / kBusReadings) {
        shown_samples = measure.reading_cnt / kBusReadings;
        is_plot_stale = true;
    }
    if (is_plot_stale && g_get_monotonic_time() - plot_drawn_us >= kPlotPause_us) {
        gtk_widget_queue_draw(bus.plot);
    }
}

// ---- Numbers ----

void show_channel(std::size_t channel) {
    const ChannelLabels& labels = bus.channels[channel];
    const BusNow& now = measure.now[channel];
    const GText frames(g_strdup_printf("%.0f", now.frames_per_s));
    show_text(labels.bit_rate, bus_rate_words(measure.meter.rates[channel]).c_str());
    show_text(labels.load, bus_load_words(now).c_str());
    show_text(labels.frames, frames.get());
    show_text(labels.sent_errors, bus_sent_words(now.errors).c_str());
    show_text(labels.recv_errors, bus_received_words(now.errors).c_str());
    show_text(labels.state, bus_state_words(now.errors, measure.read_us).c_str());
}

// What the plot shows at its right end, for those who do not see it.
void describe_plot() {
    std::string words;
    for (const ChannelLabels& labels : bus.channels) {
        const auto text = [](GtkWidget* label) {
            return std::string(gtk_label_get_text(GTK_LABEL(label)));
        };
        words += &labels == bus.channels.data() ? "CAN 1: " : "CAN 2: ";
        words += text(labels.frames) + " frames per second, bus load " + text(labels.load) +
                 ", transmit errors " + text(labels.sent_errors) + ", receive errors " +
                 text(labels.recv_errors) + ", error state: " + text(labels.state) + ". ";
    }
    AtkObject* const plot = gtk_widget_get_accessible(bus.plot);
    if (words !=
        (atk_object_get_description(plot) == nullptr ? "" : atk_object_get_description(plot))) {
        atk_object_set_description(plot, words.c_str());
    }
}

void show_lost() {
    std::string words;
    for (const LossRow& row : losses_seen()) {
        if (const std::string text = loss_words(row); !text.empty()) {
            words += (words.empty() ? "" : "\n") + text;
        }
    }
    show_text(bus.losses, words.empty() ? "Nothing" : words.c_str());
}

void show_numbers() {
    bool is_reported = false;
    for (std::size_t channel = 0; channel < bus.channels.size(); ++channel) {
        show_channel(channel);
        is_reported = is_reported || measure.now[channel].errors.time_us >= 0;
    }
    gtk_widget_set_visible(bus.hint, is_reported ? FALSE : TRUE);
    show_lost();
    describe_plot();
}

void show_all() {
    is_plot_stale = true;
    show_numbers();
    refresh_plot();
}

// ---- Page ----

void begin() {
    bus_measure_begin(&measure, g_get_monotonic_time());
    shown_samples = 0;
    show_all();
}

void open(GtkBuilder* builder) {
    lookup_all(builder, kFields);
    g_signal_connect(bus.plot, "draw", G_CALLBACK(on_draw), nullptr);
    g_signal_connect(bus.plot, "style-updated", G_CALLBACK(on_style_updated), nullptr);
    plot_drawn_us = 0;
    begin();
}

void close() {
    plot_surface.reset();
    bus = {};
}

void add(const trace::Record& record) {
    bus_measure_add(&measure, record);
}

void refresh(bool is_shown) {
    static bool was_shown = false;
    const auto rates = is_connect ? bus_rates(upui_info) : decltype(bus_rates(upui_info)){};
    const bool has_read = bus_measure_read(&measure, rates, g_get_monotonic_time());
    if (is_shown && (has_read || !was_shown)) {
        show_numbers();
    }
    if (is_shown) {
        refresh_plot();
    }
    was_shown = is_shown;
}

}  // namespace

const MonitorPage kBusPage{
    .id = "bus",
    .title = "_Bus",
    .open = open,
    .close = close,
    .add = add,
    .refresh = refresh,
    .clear = begin,
    .filter_changed = nullptr,
    .load = nullptr,
    .save = nullptr,
};
