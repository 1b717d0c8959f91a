// tools/ui_script/ui_script.cpp - tool: a GTK module that plays a script in the unmodified program.
// Uses tools/ui_script/widgets.h. Load it by GTK_MODULES=<this library> UI_SCRIPT=<script file>.
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
//   expect ID TEXT              compares a text now; text_of in widgets.h says what counts as text
//   expect-sensitive ID on|off  compares a widget's sensitivity now
//   wait ID TEXT SECONDS        until the text is TEXT or, for >=N, a number of at least N
//   wait-log TEXT SECONDS       until a line of the status log contains TEXT
//   print ID                    writes "ID=text" to standard output
//   rows ID                     writes "ID=number of rows" of a tree view
//   cell ID ROW COL             writes "ID[ROW,COL]=text"; counted from 0, row -1 is the last
//   screenshot FILE [ID]        writes the main window or the one named, once it has been redrawn
//   size W H                    resizes the main window
//   sleep MS                    waits
//   respond ID RESPONSE         presses the dialog's button with that response id; -4 closes it
//   choose-file PATH            names a file in the open file chooser and confirms it
//   close                       closes the main window as a user would
//   quit-code N                 ends the program at once with exit status N
// clang-format on
//
// Relative FILE and PATH start from the directory UI_SCRIPT_OUT when it is set. Animations are
// switched off, so that a screenshot shows a settled state. A step that fails, and a program that
// ends before the last step, print "ui_script: line N: reason" to standard error and give exit
// status 70.
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "tools/ui_script/widgets.h"

namespace {

using namespace ui_script;

constexpr guint kPeriod_ms = 5;
constexpr double kDefaultLimit_s = 10;  // of steps that wait but name no time
constexpr int kFailedStatus = 70;

using Words = std::vector<std::string>;
using Chars = std::unique_ptr<char, decltype(&g_free)>;  // text allocated by GLib

enum class Outcome { done, again };

struct Step;

struct Command {
    const char* name;
    size_t arguments_min;
    size_t arguments_max;
    Outcome (*run)(Step& step);
};

struct Step {
    int line;
    const Command* command;
    Words words;           // words[0] is the command's name
    gint64 began_us = -1;  // set when the step first runs
    gint64 mark = -1;      // what a step that waits has to remember
};

std::vector<Step> steps;
size_t next_step = 0;
int current_line = 0;

[[noreturn]] void end_program(int status) {
    std::fflush(stdout);
    std::fflush(stderr);
    _exit(status);
}

[[noreturn]] void fail(const std::string& reason) {
    std::fprintf(stderr, "ui_script: line %d: %s\n", current_line, reason.c_str());
    end_program(kFailedStatus);
}

std::string quoted(const std::string& text) {
    return "\"" + text + "\"";
}

template <typename Number>
Number number(const std::string& text) {
    Number value{};
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end) {
        fail(quoted(text) + " is no number");
    }
    return value;
}

bool on_or_off(const std::string& word) {
    if (word != "on" && word != "off") {
        fail("on or off wanted, not " + quoted(word));
    }
    return word == "on";
}

double elapsed_s(const Step& step) {
    return static_cast<double>(g_get_monotonic_time() - step.began_us) / G_USEC_PER_SEC;
}

Outcome wait_until(const Step& step, bool reached, double limit_s, const std::string& reason) {
    if (reached) {
        return Outcome::done;
    }
    if (elapsed_s(step) > limit_s) {
        fail(reason);
    }
    return Outcome::again;
}

std::string output_path(const std::string& file) {
    const char* directory = g_getenv("UI_SCRIPT_OUT");
    return Chars(g_canonicalize_filename(file.c_str(), directory), g_free).get();
}

// ---- Widgets by name; a missing one or one of another kind fails the script ----------------------

GtkWidget* widget(const std::string& id) {
    GtkWidget* found = find_by_id(id);
    if (found == nullptr) {
        fail("no widget " + id);
    }
    return found;
}

GtkWidget* open_window(GtkWidget* found) {
    if (found == nullptr) {
        fail("no such window is open");
    }
    return found;
}

GtkWidget* widget_of_kind(const std::string& id, GType kind) {
    GtkWidget* found = widget(id);
    if (!G_TYPE_CHECK_INSTANCE_TYPE(found, kind)) {
        fail(id + " is no " + g_type_name(kind));
    }
    return found;
}

GtkTreeView* tree_view(const std::string& id) {
    return GTK_TREE_VIEW(widget_of_kind(id, GTK_TYPE_TREE_VIEW));
}

void require_usable(GtkWidget* found, const std::string& id) {
    if (const char* reason = why_unusable(found); reason != nullptr) {
        fail(id + " " + reason);
    }
}

std::string text(const std::string& id) {
    const auto found = text_of(widget(id));
    if (!found) {
        fail(id + " has no text");
    }
    return *found;
}

// ---- Commands ------------------------------------------------------------------------------------

Outcome wait_window(Step& step) {
    return wait_until(step, find_window(step.words[1]) != nullptr, number<double>(step.words[2]),
                      "no window " + step.words[1]);
}

Outcome click(Step& step) {
    GtkWidget* button = find_by_id(step.words[1]);
    if (button == nullptr) {
        button = find_dialog_button(step.words[1]);
    }
    if (button == nullptr || !GTK_IS_BUTTON(button)) {
        fail("no button " + step.words[1]);
    }
    require_usable(button, step.words[1]);
    gtk_button_clicked(GTK_BUTTON(button));
    return Outcome::done;
}

Outcome toggle(Step& step) {
    GtkWidget* box = widget_of_kind(step.words[1], GTK_TYPE_TOGGLE_BUTTON);
    require_usable(box, step.words[1]);
    const bool is_on = gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(box)) != FALSE;
    if (is_on != on_or_off(step.words[2])) {
        gtk_button_clicked(GTK_BUTTON(box));
    }
    return Outcome::done;
}

Outcome select(Step& step) {
    GtkWidget* combo = widget_of_kind(step.words[1], GTK_TYPE_COMBO_BOX);
    require_usable(combo, step.words[1]);
    if (!select_row(GTK_COMBO_BOX(combo), step.words[2])) {
        fail(step.words[1] + " has no row " + quoted(step.words[2]));
    }
    return Outcome::done;
}

Outcome type(Step& step) {
    GtkWidget* entry = widget_of_kind(step.words[1], GTK_TYPE_ENTRY);
    require_usable(entry, step.words[1]);
    gtk_widget_grab_focus(entry);
    gtk_editable_select_region(GTK_EDITABLE(entry), 0, -1);
    press_key(entry, GDK_KEY_BackSpace);
    for (const char* at = step.words[2].c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
        press_key(entry, gdk_unicode_to_keyval(g_utf8_get_char(at)));
    }
    return Outcome::done;
}

Outcome expect(Step& step) {
    if (text(step.words[1]) != step.words[2]) {
        fail(step.words[1] + " is " + quoted(text(step.words[1])) + ", not " +
             quoted(step.words[2]));
    }
    return Outcome::done;
}

Outcome expect_sensitive(Step& step) {
    const bool is_sensitive = gtk_widget_is_sensitive(widget(step.words[1])) != FALSE;
    if (is_sensitive != on_or_off(step.words[2])) {
        fail(step.words[1] + (is_sensitive ? " is sensitive" : " is not sensitive"));
    }
    return Outcome::done;
}

bool text_matches(const std::string& found, const std::string& wanted) {
    if (!wanted.starts_with(">=")) {
        return found == wanted;
    }
    return std::strtol(found.c_str(), nullptr, 10) >= number<long>(wanted.substr(2));
}

Outcome wait(Step& step) {
    const std::string found = text(step.words[1]);
    return wait_until(step, text_matches(found, step.words[2]), number<double>(step.words[3]),
                      step.words[1] + " is " + quoted(found) + ", not " + quoted(step.words[2]));
}

Outcome wait_log(Step& step) {
    return wait_until(step, any_row_contains(tree_view("Log_treeview"), step.words[1]),
                      number<double>(step.words[2]),
                      "the status log has no line " + quoted(step.words[1]));
}

Outcome print(Step& step) {
    std::printf("%s=%s\n", step.words[1].c_str(), text(step.words[1]).c_str());
    std::fflush(stdout);
    return Outcome::done;
}

Outcome rows(Step& step) {
    tree_view(step.words[1]);
    return print(step);
}

Outcome cell(Step& step) {
    const auto found =
        cell_text(tree_view(step.words[1]), number<int>(step.words[2]), number<int>(step.words[3]));
    if (!found) {
        fail(step.words[1] + " has no cell " + step.words[2] + ", " + step.words[3]);
    }
    std::printf("%s[%s,%s]=%s\n", step.words[1].c_str(), step.words[2].c_str(),
                step.words[3].c_str(), found->c_str());
    std::fflush(stdout);
    return Outcome::done;
}

// A frame that was being painted when the redraw was asked for may lack it; the next one does not.
Outcome screenshot(Step& step) {
    constexpr gint64 kFrames = 2;
    GtkWidget* window =
        open_window(step.words.size() > 2 ? find_window(step.words[2]) : find_main_window());
    GdkFrameClock* clock = gtk_widget_get_frame_clock(window);
    if (step.mark < 0) {
        step.mark = gdk_frame_clock_get_frame_counter(clock);
    }
    gtk_widget_queue_draw(window);
    const bool is_redrawn = gdk_frame_clock_get_frame_counter(clock) >= step.mark + kFrames;
    if (wait_until(step, is_redrawn, kDefaultLimit_s, "the window is not redrawn") ==
        Outcome::again) {
        return Outcome::again;
    }
    GdkWindow* area = gtk_widget_get_window(window);
    GdkPixbuf* image = gdk_pixbuf_get_from_window(area, 0, 0, gdk_window_get_width(area),
                                                  gdk_window_get_height(area));
    const std::string path = output_path(step.words[1]);
    if (image == nullptr || !gdk_pixbuf_save(image, path.c_str(), "png", nullptr, nullptr)) {
        fail("cannot write " + path);
    }
    g_object_unref(image);
    return Outcome::done;
}

Outcome size(Step& step) {
    GtkWindow* window = GTK_WINDOW(open_window(find_main_window()));
    const int width = number<int>(step.words[1]);
    const int height = number<int>(step.words[2]);
    gtk_window_resize(window, width, height);
    int width_now = 0;
    int height_now = 0;
    gtk_window_get_size(window, &width_now, &height_now);
    const std::string now = std::to_string(width_now) + " by " + std::to_string(height_now);
    return wait_until(step, width_now == width && height_now == height, kDefaultLimit_s,
                      "the window is " + now);
}

Outcome sleep_for(Step& step) {
    const bool is_over = elapsed_s(step) * 1000 >= number<double>(step.words[1]);
    return is_over ? Outcome::done : Outcome::again;
}

void press_response(GtkWidget* dialog, int response) {
    GtkWidget* button = gtk_dialog_get_widget_for_response(GTK_DIALOG(dialog), response);
    if (button == nullptr) {
        fail("no button answers " + std::to_string(response));
    }
    require_usable(button, "the button");
    gtk_button_clicked(GTK_BUTTON(button));
}

Outcome respond(Step& step) {
    GtkWidget* dialog = open_window(find_window(step.words[1]));
    const int response = number<int>(step.words[2]);
    if (!GTK_IS_DIALOG(dialog)) {
        fail(step.words[1] + " is no dialog");
    }
    if (response == GTK_RESPONSE_DELETE_EVENT) {
        close_window(dialog);
    } else {
        press_response(dialog, response);
    }
    return Outcome::done;
}

void name_file(GtkFileChooser* chooser, const std::string& path) {
    if (gtk_file_chooser_get_action(chooser) == GTK_FILE_CHOOSER_ACTION_OPEN) {
        gtk_file_chooser_set_filename(chooser, path.c_str());
        return;
    }
    const size_t slash = path.rfind('/');
    gtk_file_chooser_set_current_folder(chooser, path.substr(0, slash + 1).c_str());
    gtk_file_chooser_set_current_name(chooser, path.substr(slash + 1).c_str());
}

// The chooser reads the folder in the background: its answer is asked for until it is the right one.
Outcome choose_file(Step& step) {
    GtkWidget* dialog = find_file_chooser();
    if (dialog == nullptr) {
        return wait_until(step, false, kDefaultLimit_s, "no file chooser is open");
    }
    GtkFileChooser* chooser = GTK_FILE_CHOOSER(dialog);
    const std::string path = output_path(step.words[1]);
    if (step.mark < 0) {
        name_file(chooser, path);
    }
    step.mark = 0;
    const Chars chosen(gtk_file_chooser_get_filename(chooser), g_free);
    const bool is_chosen = chosen != nullptr && path == chosen.get();
    if (wait_until(step, is_chosen, kDefaultLimit_s, "cannot choose " + path) == Outcome::again) {
        return Outcome::again;
    }
    press_response(dialog, GTK_RESPONSE_OK);
    return Outcome::done;
}

Outcome close_main(Step& /*step*/) {
    close_window(open_window(find_main_window()));
    return Outcome::done;
}

Outcome quit_code(Step& step) {
    end_program(number<int>(step.words[1]));
}

constexpr Command kCommands[] = {
    {"wait-window", 2, 2, wait_window},
    {"click", 1, 1, click},
    {"toggle", 2, 2, toggle},
    {"select", 2, 2, select},
    {"type", 2, 2, type},
    {"expect", 2, 2, expect},
    {"expect-sensitive", 2, 2, expect_sensitive},
    {"wait", 3, 3, wait},
    {"wait-log", 2, 2, wait_log},
    {"print", 1, 1, print},
    {"rows", 1, 1, rows},
    {"cell", 3, 3, cell},
    {"screenshot", 1, 2, screenshot},
    {"size", 2, 2, size},
    {"sleep", 1, 1, sleep_for},
    {"respond", 2, 2, respond},
    {"choose-file", 1, 1, choose_file},
    {"close", 0, 0, close_main},
    {"quit-code", 1, 1, quit_code},
};

// ---- Script --------------------------------------------------------------------------------------

const Command* find_command(const Words& words) {
    for (const Command& command : kCommands) {
        if (words[0] != command.name) {
            continue;
        }
        if (words.size() - 1 < command.arguments_min || words.size() - 1 > command.arguments_max) {
            fail("wrong number of arguments for " + words[0]);
        }
        return &command;
    }
    fail("unknown command " + words[0]);
}

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
