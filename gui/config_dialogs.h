// gui/config_dialogs.h - user interface: saving and loading the module's configuration file.
// Thread: main; the dialogs run nested main loops.
// SPDX-License-Identifier: MIT
#ifndef GUI_CONFIG_DIALOGS_H
#define GUI_CONFIG_DIALOGS_H

#include <gtk/gtk.h>

// "clicked" of Export: applies the settings, asks for a file and saves the module's configuration.
void btn_export_cb(GtkWidget* widget, gpointer user_data);
// "clicked" of Import: asks for a file and loads it into the module.
void btn_import_cb(GtkWidget* widget, gpointer user_data);

#endif
