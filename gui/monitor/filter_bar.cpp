// gui/monitor/filter_bar.cpp - user interface: the filter's entry, checked as it is typed.
// Uses gui/monitor/filter.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/filter_bar.h"

#include "gui/monitor/settings_file.h"
#include "gui/widgets.h"

#include "lib/lib_tavu_2.h"

#include <string>

namespace {

constexpr const char* kGroup = "window";
constexpr const char* kKey = "filter";

struct FilterBar {
    GtkWidget* entry;
    GtkWidget* fault;  // label below the entry
};
FilterBar bar{};

constexpr WidgetField kFields[] = {{"filter_entry", &bar.entry}, {"filter_fault", &bar.fault}};
static_assert(fills_all_but<FilterBar>(0, kFields));

FrameFilter filter;
std::string filter_text;  // of the filter that holds
void (*tell_changed)() = nullptr;

void show_fault(const char* text) {
    const bool is_fault = text[0] != '\0';
    // A mark, and no colour of the text: the theme's red is hard to read on a dark ground.
    gtk_entry_set_icon_from_icon_name(GTK_ENTRY(bar.entry), GTK_ENTRY_ICON_PRIMARY,
                                      is_fault ? "dialog-warning-symbolic" : "edit-find-symbolic");
    gtk_label_set_text(GTK_LABEL(bar.fault), text);
    gtk_widget_set_visible(bar.fault, is_fault ? TRUE : FALSE);
}

// "changed" of the entry. While the text is no filter, the one before holds.
void take_text(GtkWidget* /*entry*/, gpointer /*user_data*/) {
    FilterError error;
    const char* text = gtk_entry_get_text(GTK_ENTRY(bar.entry));
    if (filter_parse(text, &filter, &error) == TAVU_SUCCESS) {
        filter_text = text;
        show_fault("");
        tell_changed();
    } else {
        show_fault((error.reason + " The filter before still holds.").c_str());
    }
}

}  // namespace

void filter_bar_open(GtkBuilder* builder, void (*changed)()) {
    lookup_all(builder, kFields);
    filter = {};
    filter_text.clear();
    tell_changed = changed;
    g_signal_connect(bar.entry, "changed", G_CALLBACK(take_text), nullptr);
}

const FrameFilter& monitor_filter() {
    return filter;
}

void filter_bar_load(GKeyFile* settings) {
    if (const GText text = setting_text(settings, kGroup, kKey)) {
        gtk_entry_set_text(GTK_ENTRY(bar.entry), text.get());
    }
}

void filter_bar_save(GKeyFile* settings) {
    g_key_file_set_string(settings, kGroup, kKey, filter_text.c_str());
}
