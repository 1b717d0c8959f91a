// tools/ui_script/ui_script.cpp - tool: a GTK module that plays a script in the unmodified program.
// Uses tools/ui_script/commands.h. Load it by GTK_MODULES=<this library> UI_SCRIPT=<script file>.
// Thread: main, from a timeout source that goes on inside the nested loops of dialogs.
// SPDX-License-Identifier: MIT
//
// A script has one command a line; # starts a comment, words with blanks stand in quotes. ID is a
// widget's id in its interface file. Where no widget has it, click takes it as the label of a
// dialog's button; a window may be named by its title. Commands that operate a widget turn to its
// notebook page first and fail when a user could not reach it (hidden, insensitive, behind a dialog).
//
// clang-format off
//   wait-window ID SECONDS      until the window is open
//   click ID                    presses a button
//   toggle ID on|off            clicks a check box that is in the other state
//   select ID TEXT              selects a combo's row
//   type ID TEXT                empties an entry and types into it, key by key, as key filters want
//   key NAME...                 presses keys in the window that has the keyboard: F2, a, <Alt>n, Tab
//   tab-to ID                   presses Tab until the widget has the focus
//   expect ID TEXT              compares a text now; text_of in widgets.h says what counts as text
//   expect-sensitive ID on|off  compares a widget's sensitivity now
//   wait ID TEXT SECONDS        until the text is TEXT or, for >=N, a number of at least N
//   wait-text ID TEXT SECONDS   until the text contains TEXT
//   wait-hidden ID SECONDS      until the widget is not shown
//   wait-log TEXT SECONDS       until a line of the status log contains TEXT
//   print ID                    writes "ID=text" to standard output
//   rows ID                     writes "ID=number of rows" of a tree view
//   cell ID ROW COL             writes "ID[ROW,COL]=text"; counted from 0, row -1 is the last
//   screenshot FILE [ID]        writes the main window or the one named, once it has been redrawn
//   size W H                    resizes the main window
//   sleep MS                    waits
//   hold MS                     keeps the program from doing anything
//   tell FILE TEXT              adds a line to a file, such as the control FIFO of tavu-sim
//   respond ID RESPONSE         presses the dialog's button with that response id; -4 closes it
//   choose-file PATH            names a file in the open file chooser and confirms it
//   close                       closes the main window as a user would
//   quit-code N                 ends the program at once with exit status N
// clang-format on
//
// The keys of key and tab-to go through the display as a user's do; windows take them only if the
// program was started with GDK_CORE_DEVICE_EVENTS=1 in its environment. Relative FILE and PATH start
// from the directory UI_SCRIPT_OUT when it is set. Animations are switched off, so that a screenshot
// shows a settled state. A step that fails, and a program that ends before the last step, print
// "ui_script: line N: reason" to standard error and give exit status 70.
#include <gtk/gtk.h>

#include <cstdlib>
#include <fstream>

#include "tools/ui_script/commands.h"

namespace {

using namespace ui_script;

constexpr guint kPeriod_ms = 5;

std::vector<Step> steps;
size_t next_step = 0;

void add_step(const std::string& line) {
    int count = 0;
    char** parts = nullptr;
    GError* error = nullptr;
    if (!g_shell_parse_argv(line.c_str(), &count, &parts, &error)) {
        if (!g_error_matches(error, G_SHELL_ERROR, G_SHELL_ERROR_EMPTY_STRING)) {
            fail(error->message);
        }
        g_error_free(error);
        return;
    }
    const Words words(parts, parts + count);
    g_strfreev(parts);
    steps.push_back({current_line, find_command(words), words});
}

void load(const char* file) {
    std::ifstream script(file);
    if (!script) {
        fail(std::string("cannot read ") + file);
    }
    for (std::string line; std::getline(script, line);) {
        ++current_line;
        add_step(line);
    }
}

// A step may open a dialog, whose loop calls this again before the step returns: count first.
gboolean play(gpointer) {
    if (next_step == 0) {
        g_object_set(gtk_settings_get_default(), "gtk-enable-animations", FALSE, nullptr);
    }
    if (next_step == steps.size()) {
        return G_SOURCE_REMOVE;
    }
    const size_t index = next_step++;
    Step& step = steps[index];
    current_line = step.line;
    if (step.began_us < 0) {
        step.began_us = g_get_monotonic_time();
    }
    if (step.command->run(step) == Outcome::again) {
        next_step = index;
    }
    return G_SOURCE_CONTINUE;
}

void check_all_played() {
    if (next_step == steps.size()) {
        return;
    }
    current_line = steps[next_step].line;
    fail("the program ended before this step");
}

}  // namespace

// Called by GTK once it has loaded the module, before the program builds its windows.
extern "C" G_MODULE_EXPORT void gtk_module_init(gint* argc, gchar*** argv);

void gtk_module_init(gint* /*argc*/, gchar*** /*argv*/) {
    const char* file = g_getenv("UI_SCRIPT");
    if (file == nullptr) {
        return;
    }
    load(file);
    std::atexit(check_all_played);
    GSource* source = g_timeout_source_new(kPeriod_ms);
    g_source_set_can_recurse(source, TRUE);
    g_source_set_callback(source, play, nullptr, nullptr);
    g_source_attach(source, nullptr);
    g_source_unref(source);
}
