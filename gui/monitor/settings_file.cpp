// gui/monitor/settings_file.cpp - user interface: what the monitor window remembers, in a file of keys.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/settings_file.h"

#include <glib/gstdio.h>

#include <cerrno>

namespace {

GText folder_path() {
    return GText(g_build_filename(g_get_user_config_dir(), "tavu-utility", nullptr));
}

GText file_path() {
    return GText(g_build_filename(folder_path().get(), "monitor.ini", nullptr));
}

// A file that is none of ours, or was damaged, is not written over: a list of messages may be in it.
void put_aside(const char* reason) {
    const GText path = file_path();
    const GText aside(g_strconcat(path.get(), ".unread", nullptr));
    if (g_rename(path.get(), aside.get()) == 0) {
        g_printerr("The settings of the monitor window cannot be read and are now %s: %s\n",
                   aside.get(), reason);
    }
}

}  // namespace

SettingsRef settings_load() {
    SettingsRef settings(g_key_file_new());
    GError* error = nullptr;
    g_key_file_load_from_file(settings.get(), file_path().get(), G_KEY_FILE_KEEP_COMMENTS, &error);
    if (error != nullptr && error->domain == G_KEY_FILE_ERROR) {
        put_aside(error->message);
        settings.reset(g_key_file_new());  // without the groups in front of what cannot be read
    }
    g_clear_error(&error);
    return settings;
}

// A crash of the program leaves the old file or the new one. Neither is synchronised with the disk,
// which may be busy with a recording and would hold the window up: a loss of power may cost both.
bool settings_save(GKeyFile* settings) {
    constexpr int kOwnerOnly = 0700;
    constexpr int kPlainFile = 0666;
    g_mkdir_with_parents(folder_path().get(), kOwnerOnly);
    gsize length = 0;
    const GText text(g_key_file_to_data(settings, &length, nullptr));
    const GText path = file_path();
    const GText fresh(g_strconcat(path.get(), ".new", nullptr));
    g_unlink(fresh.get());  // a longer one that a crash left would keep its end
    GError* error = nullptr;
    const bool is_written =
        g_file_set_contents_full(fresh.get(), text.get(), static_cast<gssize>(length),
                                 G_FILE_SET_CONTENTS_NONE, kPlainFile, &error) != FALSE;
    const bool is_saved = is_written && g_rename(fresh.get(), path.get()) == 0;
    if (!is_saved) {
        g_printerr("The settings of the monitor window are not remembered: %s\n",
                   is_written ? g_strerror(errno) : error->message);
        g_clear_error(&error);
        g_unlink(fresh.get());  // what does not fit on the disk would keep it full
    }
    return is_saved;
}

int setting_int(GKeyFile* settings, const char* group, const char* key, int lowest, int highest,
                int otherwise) {
    GError* error = nullptr;
    const int value = g_key_file_get_integer(settings, group, key, &error);
    const bool is_good = error == nullptr && value >= lowest && value <= highest;
    g_clear_error(&error);
    return is_good ? value : otherwise;
}

bool setting_bool(GKeyFile* settings, const char* group, const char* key, bool otherwise) {
    GError* error = nullptr;
    const bool value = g_key_file_get_boolean(settings, group, key, &error) != FALSE;
    const bool is_good = error == nullptr;
    g_clear_error(&error);
    return is_good ? value : otherwise;
}

GText setting_text(GKeyFile* settings, const char* group, const char* key) {
    return GText(g_key_file_get_string(settings, group, key, nullptr));
}
