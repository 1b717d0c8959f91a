// gui/status_log.cpp - user interface: the one-column list with the outcome of the latest action.
// Uses gui/application.h for the builder.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/status_log.h"

#include "gui/application.h"
#include "gui/widgets.h"

SL_INFO sl_info;

void sl_init() {
    sl_info.tree = lookup(MW_builder, "Log_treeview");
    sl_info.store = nullptr;

    GtkTreeView* view = GTK_TREE_VIEW(sl_info.tree);
    GtkCellRenderer* text_cell = gtk_cell_renderer_text_new();
    g_object_set(text_cell, "font", "Calibri 9", nullptr);
    gtk_tree_view_insert_column_with_attributes(view, -1, "Status log", text_cell, "text", 0,
                                                nullptr);
    gtk_tree_view_set_headers_visible(view, FALSE);
    // Answering the press keeps the mouse from selecting a row.
    g_signal_connect(view, "button-press-event", G_CALLBACK(gtk_true), nullptr);
}

void insert_log(const char* msg) {
    GtkTreeView* view = GTK_TREE_VIEW(sl_info.tree);
    if (sl_info.store == nullptr) {
        const GObjectRef<GtkListStore> fresh(gtk_list_store_new(1, G_TYPE_STRING));
        gtk_tree_view_set_model(view, GTK_TREE_MODEL(fresh.get()));
        sl_info.store = fresh.get();  // the view keeps it alive
    }
    gtk_list_store_insert_with_values(sl_info.store, nullptr, -1, 0, msg, -1);
    gtk_tree_view_column_queue_resize(gtk_tree_view_get_column(view, 0));
}

void clear_log() {
    if (sl_info.store != nullptr) {
        gtk_list_store_clear(sl_info.store);
    }
    sl_info.store = nullptr;
}

void log_result(const char* msg) {
    clear_log();
    insert_log(msg);
}
