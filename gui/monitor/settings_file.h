// gui/monitor/settings_file.h - user interface: what the monitor window remembers for the next time.
// Only gui/monitor/ and its tests include it.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_SETTINGS_FILE_H
#define GUI_MONITOR_SETTINGS_FILE_H

#include "gui/widgets.h"

#include <gtk/gtk.h>

#include <memory>

struct SettingsFree {
    void operator()(GKeyFile* settings) const { g_key_file_unref(settings); }
};
using SettingsRef = std::unique_ptr<GKeyFile, SettingsFree>;

// What was saved last, in the user's configuration folder; empty without such a file.
SettingsRef settings_load();

// False, with a warning on standard error, when it fails: the file is then as it was.
bool settings_save(GKeyFile* settings);

// A number from `lowest` to `highest`, or `otherwise` when there is no such number.
int setting_int(GKeyFile* settings, const char* group, const char* key, int lowest, int highest,
                int otherwise);
bool setting_bool(GKeyFile* settings, const char* group, const char* key, bool otherwise);
// Null when there is no such text.
GText setting_text(GKeyFile* settings, const char* group, const char* key);

#endif
