// gui/monitor/bus_plot.cpp - user interface: draws the last five minutes of both channels.
// Uses gui/monitor/bus_measure.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/bus_plot.h"

#include "gui/widgets.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>

namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
constexpr double kGap_px = 6;
constexpr int kMinutes = 5;

// ---- Lanes ----

struct Lane {
    const char* title;
    double (*value)(const BusNow& now);  // kNone: nothing to draw
    double least_top;                    // the axis reaches to here at least
    bool is_growing;                     // and further when values do
    double mark;                         // a value with a line of its own, 0: none
    double share;                        // of the height
};

double percent_of(const BusNow& now) {
    return now.has_percent ? now.percent : kNone;
}
double frames_of(const BusNow& now) {
    return now.frames_per_s;
}
double errors_of(const BusNow& now) {
    return now.errors.time_us < 0 ? kNone : std::max(now.errors.sent, now.errors.received);
}

constexpr Lane kLanes[] = {
    {"Bus load in per cent of the time", percent_of, 100, true, 0, 0.36},
    {"Frames per second", frames_of, 10, true, 0, 0.32},
    {"Error counter, the higher of transmit and receive (warning from 96, passive from 128)",
     errors_of, 256, false, kErrorWarning, 0.32},
};

// ---- Canvas ----

struct Canvas {
    cairo_t* cr;
    GtkWidget* widget;
    double width;
    double line_px;  // height of a line of text
    double left;     // of the axes
    double right;
    std::int64_t now_us;
    GdkRGBA text;
    std::array<GdkRGBA, TAVU_CHANNEL_CNT> channels;
};

struct Area {
    double top;
    double bottom;
};

void set_colour(const Canvas& canvas, const GdkRGBA& colour, double alpha = 1) {
    cairo_set_source_rgba(canvas.cr, colour.red, colour.green, colour.blue, colour.alpha * alpha);
}

// Draws a text of which `align` is to the left of x, 0 to 1, and gives its width.
double draw_text(const Canvas& canvas, const char* text, double x, double y, double align) {
    const GObjectRef<PangoLayout> layout(gtk_widget_create_pango_layout(canvas.widget, text));
    int width_px = 0;
    pango_layout_get_pixel_size(layout.get(), &width_px, nullptr);
    set_colour(canvas, canvas.text);
    cairo_move_to(canvas.cr, std::floor(x - align * width_px), std::floor(y));
    pango_cairo_show_layout(canvas.cr, layout.get());
    return width_px;
}

// A thin line that falls on whole pixels.
void draw_rule(const Canvas& canvas, double x1, double y1, double x2, double y2, double alpha) {
    constexpr double kHalf = 0.5;
    set_colour(canvas, canvas.text, alpha);
    cairo_set_line_width(canvas.cr, 1);
    cairo_move_to(canvas.cr, std::floor(x1) + kHalf, std::floor(y1) + kHalf);
    cairo_line_to(canvas.cr, std::floor(x2) + kHalf, std::floor(y2) + kHalf);
    cairo_stroke(canvas.cr);
}

void stroke_channel(const Canvas& canvas, std::size_t channel) {
    constexpr double kWidth_px = 2;
    constexpr std::array kDashes{7.0, 4.0};
    set_colour(canvas, canvas.channels[channel]);
    cairo_set_line_width(canvas.cr, kWidth_px);
    cairo_set_dash(canvas.cr, kDashes.data(), channel == TAVU_CAN_1 ? 0 : 2, 0);
    cairo_stroke(canvas.cr);
    cairo_set_dash(canvas.cr, nullptr, 0, 0);
}

// Which line is which channel, at the right end of the first line.
void draw_legend(const Canvas& canvas) {
    constexpr double kSample_px = 32;
    double x = canvas.right;
    for (std::size_t i = canvas.channels.size(); i-- > 0;) {
        x -= draw_text(canvas, i == TAVU_CAN_1 ? "CAN 1" : "CAN 2", x, 0, 1) + kGap_px;
        cairo_move_to(canvas.cr, x - kSample_px, canvas.line_px / 2);
        cairo_line_to(canvas.cr, x, canvas.line_px / 2);
        stroke_channel(canvas, i);
        x -= kSample_px + 3 * kGap_px;
    }
}

// The next 1, 2 or 5 with noughts behind.
double round_top(double most) {
    const double decade = std::pow(10, std::floor(std::log10(most)));
    for (const double factor : {1, 2, 5}) {
        if (most <= factor * decade) {
            return factor * decade;
        }
    }
    return 10 * decade;
}

double top_of(const Lane& lane, const BusHistory& history, std::int64_t now_us) {
    double most = 0;
    for (std::size_t i = 0; lane.is_growing && i < history.count; ++i) {
        for (const BusNow& now : history.at(i).sample) {
            const bool is_shown = now_us - history.at(i).time_us <= kBusSpan_us;
            most = is_shown ? std::fmax(most, lane.value(now)) : most;
        }
    }
    return most <= lane.least_top ? lane.least_top : round_top(most);
}

double y_of(const Area& area, double value, double top) {
    return area.bottom - (area.bottom - area.top) * value / top;
}

void draw_axes(const Canvas& canvas, const Lane& lane, const Area& area, double top) {
    constexpr double kFaint = 0.18;
    constexpr double kMark = 0.4;
    for (const double value : {0.0, top / 2, top}) {
        const double y = y_of(area, value, top);
        const GText label(g_strdup_printf("%.0f", value));
        draw_rule(canvas, canvas.left, y, canvas.right, y, kFaint);
        draw_text(canvas, label.get(), canvas.left - kGap_px, y - canvas.line_px / 2, 1);
    }
    if (lane.mark > 0) {
        const double y = y_of(area, lane.mark, top);
        draw_rule(canvas, canvas.left, y, canvas.right, y, kMark);
        draw_rule(canvas, canvas.left, y_of(area, top / 2, top), canvas.right,
                  y_of(area, top / 2, top), kMark);
    }
    for (int minute = 0; minute <= kMinutes; ++minute) {
        const double x = canvas.left + (canvas.right - canvas.left) * minute / kMinutes;
        draw_rule(canvas, x, area.top, x, area.bottom, kFaint);
    }
}

void draw_channel(const Canvas& canvas, const Lane& lane, const Area& area, double top,
                  const BusHistory& history, std::size_t channel) {
    bool is_drawing = false;
    for (std::size_t i = 0; i < history.count; ++i) {
        const auto& [time_us, sample] = history.at(i);
        const double value = lane.value(sample[channel]);
        if (std::isnan(value)) {
            is_drawing = false;
            continue;
        }
        const double age = static_cast<double>(canvas.now_us - time_us) / kBusSpan_us;
        const double x = canvas.right - (canvas.right - canvas.left) * age;
        (is_drawing ? cairo_line_to : cairo_move_to)(canvas.cr, x, y_of(area, value, top));
        is_drawing = true;
    }
    stroke_channel(canvas, channel);
}

void draw_lane(const Canvas& canvas, const Lane& lane, const Area& area,
               const BusHistory& history) {
    const double top = top_of(lane, history, canvas.now_us);
    draw_axes(canvas, lane, area, top);
    cairo_save(canvas.cr);
    cairo_rectangle(canvas.cr, canvas.left, area.top - 1, canvas.right - canvas.left,
                    area.bottom - area.top + 2);
    cairo_clip(canvas.cr);
    for (std::size_t channel = 0; channel < canvas.channels.size(); ++channel) {
        draw_channel(canvas, lane, area, top, history, channel);
    }
    cairo_restore(canvas.cr);
}

void draw_times(const Canvas& canvas, double y) {
    for (int minute = 0; minute <= kMinutes; ++minute) {
        const int ago = kMinutes - minute;
        const double x = canvas.left + (canvas.right - canvas.left) * minute / kMinutes;
        const GText label(ago == 0 ? g_strdup("now") : g_strdup_printf("%d min ago", ago));
        draw_text(canvas, label.get(), x, y, ago == 0 ? 1 : minute == 0 ? 0 : 0.5);
    }
}

Canvas canvas_of(cairo_t* cr, GtkWidget* widget, std::int64_t now_us) {
    // Dark on light, light on dark; both are told apart by those who see no red or no green.
    constexpr std::array<GdkRGBA, TAVU_CHANNEL_CNT> kOnLight{
        {{0.10, 0.37, 0.71, 1}, {0.72, 0.28, 0, 1}}};
    constexpr std::array<GdkRGBA, TAVU_CHANNEL_CNT> kOnDark{
        {{0.47, 0.71, 0.98, 1}, {1, 0.64, 0.28, 1}}};
    constexpr double kMiddle = 1.5;
    Canvas canvas{};
    canvas.cr = cr;
    canvas.widget = widget;
    canvas.width = gtk_widget_get_allocated_width(widget);
    canvas.now_us = now_us;
    GtkStyleContext* const style = gtk_widget_get_style_context(widget);
    gtk_style_context_get_color(style, gtk_style_context_get_state(style), &canvas.text);
    const GdkRGBA& text = canvas.text;
    canvas.channels = text.red + text.green + text.blue > kMiddle ? kOnDark : kOnLight;
    const GObjectRef<PangoLayout> layout(gtk_widget_create_pango_layout(widget, "1000000"));
    int width_px = 0;
    int height_px = 0;
    pango_layout_get_pixel_size(layout.get(), &width_px, &height_px);
    canvas.line_px = height_px;
    canvas.left = width_px + kGap_px;
    canvas.right = canvas.width - 1;
    return canvas;
}

}  // namespace

void bus_plot_draw(cairo_t* cr, GtkWidget* widget, const BusHistory& history, std::int64_t now_us) {
    const Canvas canvas = canvas_of(cr, widget, now_us);
    const double height = gtk_widget_get_allocated_height(widget);
    // Each lane has its title above, and half a line below for the label of its 0.
    const double titles = static_cast<double>(std::size(kLanes)) * (canvas.line_px * 2 + kGap_px);
    const double room = height - titles - canvas.line_px;
    if (room < canvas.line_px || canvas.right - canvas.left < canvas.line_px) {
        return;
    }
    draw_legend(canvas);
    double y = 0;
    for (const Lane& lane : kLanes) {
        draw_text(canvas, lane.title, canvas.left, y, 0);
        const double top = y + canvas.line_px + kGap_px;
        const Area area{.top = top, .bottom = top + room * lane.share};
        draw_lane(canvas, lane, area, history);
        y = area.bottom + canvas.line_px;
    }
    draw_times(canvas, y - canvas.line_px / 3);
}
