// gui/monitor/trace_find.cpp - user interface: the line of the trace page in which frames are looked for.
// Uses gui/monitor/trace_search.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/trace_find.h"

#include "gui/monitor/page.h"
#include "gui/monitor/trace_search.h"
#include "gui/widgets.h"

namespace {

struct FindLine {
    GtkWidget* open_btn;
    GtkWidget* line;
    GtkWidget* kind;
    GtkWidget* entry;
    GtkWidget* next;
    GtkWidget* previous;
    GtkWidget* status;
    GtkWidget* close;
};
FindLine find{};

constexpr WidgetField kFields[] = {
    {"trace_find", &find.open_btn}, {"find_line", &find.line},   {"find_kind", &find.kind},
    {"find_entry", &find.entry},    {"find_next", &find.next},   {"find_previous", &find.previous},
    {"find_status", &find.status},  {"find_close", &find.close},
};
static_assert(fills_all_but<FindLine>(0, kFields));

const TraceRows* rows = nullptr;
VirtualTable* table = nullptr;
void (*tell_found)(std::uint64_t row) = nullptr;

SearchFor wanted;
bool is_wanted = false;  // the entry has what can be looked for
Search search;
guint search_idle = 0;
int shown_progress = 0;

void say(const char* text) {
    gtk_label_set_text(GTK_LABEL(find.status), text);
}

// ---- Search ----

void end_search() {
    if (search_idle != 0) {
        g_source_remove(search_idle);
        search_idle = 0;
    }
}

void show_progress() {
    const int progress = search_progress(&search);
    if (progress != shown_progress) {
        const GText text(g_strdup_printf("Searching, %d %%. Escape ends it.", progress));
        say(text.get());
        shown_progress = progress;
    }
}

const char* found_text() {
    if (!search.is_around) {
        return "";
    }
    return search.is_backwards ? "Found from the end on." : "Found from the beginning on.";
}

const char* not_found_text() {
    constexpr int kMostlyDone = 95;  // per cent; while frames come, the filter is never quite done
    if (rows->is_unfiltered) {
        return "No frame has that.";
    }
    return trace_rows_progress(rows) < kMostlyDone
               ? "No frame so far has that, but the filter is still at work."
               : "No frame that passes the filter has that.";
}

gboolean go_on(gpointer /*user_data*/) {
    const SearchState state = search_go_on(&search, rows);
    if (state == kSearching) {
        show_progress();
        return G_SOURCE_CONTINUE;
    }
    search_idle = 0;
    if (state == kFound) {
        say(found_text());
        tell_found(search.row);
    } else {
        say(not_found_text());
    }
    return G_SOURCE_REMOVE;
}

// Where a search begins: beside what is selected, or at the edge of what is seen.
std::uint64_t first_row(bool is_backwards) {
    const RowRange selected = virtual_table_selected(table);
    const RowRange seen = virtual_table_visible(table);
    if (is_backwards) {
        return selected.count() > 0 ? selected.first : seen.end;
    }
    return selected.count() > 0 ? selected.end : seen.first;
}

void begin_search(bool is_backwards) {
    end_search();
    gtk_widget_show(find.line);
    if (!is_wanted) {
        gtk_widget_grab_focus(find.entry);
        return;
    }
    search_begin(&search, wanted, trace_rows_range(rows), first_row(is_backwards), is_backwards);
    say("");
    shown_progress = 0;
    // Behind redraws and the display timer, before what is only done in spare time.
    search_idle = g_idle_add_full(GDK_PRIORITY_REDRAW + 10, go_on, nullptr, nullptr);
}

// ---- Line ----

void take_text(GtkWidget* /*widget*/, gpointer /*user_data*/) {
    std::string fault;
    const char* text = gtk_entry_get_text(GTK_ENTRY(find.entry));
    const bool is_data = gtk_combo_box_get_active(GTK_COMBO_BOX(find.kind)) == kSearchData;
    end_search();
    is_wanted =
        search_parse(is_data ? kSearchData : kSearchFrames, text, &wanted, &fault) == TAVU_SUCCESS;
    const bool is_fault = !is_wanted && text[0] != '\0';
    // A mark, and no colour of the text: the theme's red is hard to read on a dark ground.
    gtk_entry_set_icon_from_icon_name(GTK_ENTRY(find.entry), GTK_ENTRY_ICON_SECONDARY,
                                      is_fault ? "dialog-warning-symbolic" : nullptr);
    say(is_fault ? fault.c_str() : "");
    gtk_widget_set_tooltip_text(find.status, is_fault ? fault.c_str() : nullptr);
    for (GtkWidget* button : {find.next, find.previous}) {
        gtk_widget_set_sensitive(button, is_wanted ? TRUE : FALSE);
    }
}

void show_line() {
    gtk_widget_show(find.line);
    gtk_widget_grab_focus(find.entry);
}

void find_next() {
    begin_search(false);
}

void find_previous() {
    begin_search(true);
}

gboolean on_entry_key(GtkWidget* /*entry*/, GdkEventKey* event, gpointer /*user_data*/) {
    const bool is_return = event->keyval == GDK_KEY_Return || event->keyval == GDK_KEY_KP_Enter;
    if (is_return && (event->state & GDK_SHIFT_MASK) != 0) {
        find_previous();
        return TRUE;
    }
    return FALSE;
}

void hide_line() {
    end_search();
    say("");
    gtk_widget_hide(find.line);
    gtk_widget_grab_focus(virtual_table_view(table));
}

// The keys work while the page is shown, as long as their buttons can be used.
void add_keys() {
    GtkAccelGroup* keys = gtk_accel_group_new();
    gtk_window_add_accel_group(GTK_WINDOW(monitor_window()), keys);
    const auto add = [keys](GtkWidget* button, guint key, int modifiers) {
        gtk_widget_add_accelerator(button, "clicked", keys, key,
                                   static_cast<GdkModifierType>(modifiers), GtkAccelFlags{});
    };
    add(find.open_btn, GDK_KEY_f, GDK_CONTROL_MASK);
    add(find.next, GDK_KEY_F3, 0);
    add(find.previous, GDK_KEY_F3, GDK_SHIFT_MASK);
    g_object_unref(keys);
}

}  // namespace

void trace_find_open(GtkBuilder* builder, const TraceRows* of_rows, VirtualTable* of_table,
                     void (*found)(std::uint64_t row)) {
    lookup_all(builder, kFields);
    rows = of_rows;
    table = of_table;
    tell_found = found;
    g_signal_connect(find.open_btn, "clicked", G_CALLBACK(show_line), nullptr);
    g_signal_connect(find.kind, "changed", G_CALLBACK(take_text), nullptr);
    g_signal_connect(find.entry, "changed", G_CALLBACK(take_text), nullptr);
    g_signal_connect(find.entry, "activate", G_CALLBACK(find_next), nullptr);
    g_signal_connect(find.entry, "key-press-event", G_CALLBACK(on_entry_key), nullptr);
    g_signal_connect(find.next, "clicked", G_CALLBACK(find_next), nullptr);
    g_signal_connect(find.previous, "clicked", G_CALLBACK(find_previous), nullptr);
    g_signal_connect(find.close, "clicked", G_CALLBACK(hide_line), nullptr);
    take_text(find.entry, nullptr);
    add_keys();
}

void trace_find_close() {
    end_search();
    find = {};
}

void trace_find_renumbered() {
    if (search_idle != 0) {
        end_search();
        say("The search has ended: other frames are shown now.");
    }
}

void trace_find_refresh() {
    if (search_idle != 0) {
        const guint idle = search_idle;
        if (go_on(nullptr) == G_SOURCE_REMOVE) {
            g_source_remove(idle);
        }
    }
}

bool trace_find_escape() {
    if (search_idle != 0) {
        end_search();
        say("The search was ended.");
        return true;
    }
    if (gtk_widget_get_visible(find.line) != FALSE) {
        hide_line();
        return true;
    }
    return false;
}
