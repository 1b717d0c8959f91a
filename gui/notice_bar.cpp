// gui/notice_bar.cpp - user interface: the bar above the frame log that says what goes wrong.
// Uses gui/application.h for the builder.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/notice_bar.h"

#include "gui/application.h"

#include <gtk/gtk.h>

#include <array>
#include <cstddef>
#include <string_view>

namespace {

struct Text {
    std::string text;
    std::string tooltip;
};

constexpr int kMargin_px = 6;

GtkWidget* bar = nullptr;
GtkWidget* label = nullptr;
std::array<Text, static_cast<std::size_t>(Notice::kEnd)> texts;

constexpr int kMostLines = 6;  // the rest is in the tooltip
// Parts lines of one paragraph: the limit is one of each paragraph.
constexpr std::string_view kLineEnd = "\u2028";

std::string one_paragraph(std::string lines) {
    for (std::size_t at = 0; (at = lines.find('\n', at)) != std::string::npos;) {
        lines.replace(at, 1, kLineEnd);
    }
    return lines;
}

void announce(const std::string& text) {
    AtkObject* accessible = gtk_widget_get_accessible(label);
    // Since ATK 2.46.
    if (g_signal_lookup("announcement", G_OBJECT_TYPE(accessible)) != 0) {
        g_signal_emit_by_name(accessible, "announcement", text.c_str());
    }
}

void show_all() {
    std::string lines;
    std::string tooltips;
    const bool is_gone = !texts[static_cast<std::size_t>(Notice::gone)].text.empty();
    for (const Text& text : texts) {
        if (!is_gone || &text == texts.data()) {  // a module that is gone makes the rest idle
            append_line(&lines, text.text);
            append_line(&tooltips, text.tooltip);
        }
    }
    if (!lines.empty()) {
        gtk_label_set_text(GTK_LABEL(label), one_paragraph(lines).c_str());
    }
    gtk_widget_set_tooltip_text(bar, tooltips.empty() ? lines.c_str() : tooltips.c_str());
    gtk_info_bar_set_message_type(GTK_INFO_BAR(bar),
                                  is_gone ? GTK_MESSAGE_ERROR : GTK_MESSAGE_WARNING);
    gtk_widget_set_visible(bar, lines.empty() ? FALSE : TRUE);
}

GtkWidget* create_label() {
    GtkWidget* text = gtk_label_new(nullptr);
    gtk_label_set_xalign(GTK_LABEL(text), 0);
    gtk_label_set_line_wrap(GTK_LABEL(text), TRUE);
    gtk_label_set_line_wrap_mode(GTK_LABEL(text), PANGO_WRAP_WORD_CHAR);
    gtk_label_set_ellipsize(GTK_LABEL(text), PANGO_ELLIPSIZE_END);
    gtk_label_set_lines(GTK_LABEL(text), kMostLines);
    return text;
}

}  // namespace

void nb_init() {
    GObject* box = gtk_builder_get_object(MW_builder, "notice_box");
    if (box == nullptr) {
        return;
    }
    bar = gtk_info_bar_new();
    gtk_buildable_set_name(GTK_BUILDABLE(bar), "notice_bar");
    atk_object_set_role(gtk_widget_get_accessible(bar), ATK_ROLE_ALERT);
    label = create_label();
    gtk_buildable_set_name(GTK_BUILDABLE(label), "notice_label");
    gtk_box_pack_start(GTK_BOX(gtk_info_bar_get_content_area(GTK_INFO_BAR(bar))), label, TRUE, TRUE,
                       0);
    gtk_box_pack_start(GTK_BOX(box), bar, FALSE, TRUE, 0);
    gtk_widget_set_margin_top(bar, kMargin_px);
    gtk_widget_set_margin_end(bar, 2 * kMargin_px);
    gtk_widget_show(label);
    gtk_widget_set_no_show_all(bar, TRUE);  // the windows are shown with all their children
    show_all();
}

void notice_show(Notice kind, const std::string& text, const std::string& tooltip) {
    Text& present = texts[static_cast<std::size_t>(kind)];
    if (bar == nullptr || (present.text == text && present.tooltip == tooltip)) {
        return;
    }
    // A number that only rises would interrupt without end.
    const bool is_count = kind == Notice::losses || kind == Notice::recording;
    const bool is_news = present.text.empty() || !is_count;
    present = {text, tooltip};
    show_all();
    if (is_news) {
        announce(text);
    }
}

void notice_hide(Notice kind) {
    Text& present = texts[static_cast<std::size_t>(kind)];
    if (bar != nullptr && !present.text.empty()) {
        present = {};
        show_all();
    }
}

void append_line(std::string* lines, const std::string& line) {
    if (!line.empty()) {
        *lines += (lines->empty() ? "" : "\n") + line;
    }
}
