// tools/ui_script/commands.cpp - tool: the commands of a script.
// Uses tools/ui_script/widgets.h. What each command does is told in ui_script.cpp.
// Thread: main, also inside the nested loops of dialogs.
// SPDX-License-Identifier: MIT
#include "tools/ui_script/commands.h"

#include <unistd.h>

#include <charconv>
#include <cstdint>
#include <cstdio>

#include "tools/ui_script/widgets.h"

namespace ui_script {

int current_line = 0;

namespace {

constexpr double kDefaultLimit_s = 10;  // of steps that wait but name no time
constexpr int kFailedStatus = 70;

[[noreturn]] void end_program(int status) {
    std::fflush(stdout);
    std::fflush(stderr);
    _exit(status);
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

// Sends one key and waits until the program has taken its events off the queue; true from then on.
bool key_arrived(Step& step, const std::string& name) {
    if (step.mark < 0) {
        if (g_getenv("GDK_CORE_DEVICE_EVENTS") == nullptr) {
            fail("keys want GDK_CORE_DEVICE_EVENTS=1 in the environment");
        }
        guint key = 0;
        GdkModifierType modifiers{};
        gtk_accelerator_parse(name.c_str(), &key, &modifiers);
        if (key == 0) {
            fail(quoted(name) + " is no key");
        }
        if (!send_key(key, modifiers)) {
            fail("no window takes keys");
        }
        step.mark = 0;
        return false;
    }
    return gdk_events_pending() == FALSE;
}

Outcome key(Step& step) {
    if (!key_arrived(step, step.words[1])) {
        return wait_until(step, false, kDefaultLimit_s, "the key is not taken");
    }
    step.mark = -1;
    step.words.erase(step.words.begin() + 1);
    return step.words.size() > 1 ? Outcome::again : Outcome::done;
}

Outcome tab_to(Step& step) {
    GtkWidget* wanted = widget(step.words[1]);
    if (step.mark < 0 && has_focus(wanted)) {
        return Outcome::done;
    }
    if (key_arrived(step, "Tab")) {
        step.mark = -1;
    }
    return wait_until(step, false, kDefaultLimit_s, "Tab does not reach " + step.words[1]);
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

Outcome wait_text(Step& step) {
    const std::string found = text(step.words[1]);
    return wait_until(
        step, found.find(step.words[2]) != std::string::npos, number<double>(step.words[3]),
        step.words[1] + " is " + quoted(found) + ", without " + quoted(step.words[2]));
}

Outcome wait_hidden(Step& step) {
    return wait_until(step, gtk_widget_get_mapped(widget(step.words[1])) == FALSE,
                      number<double>(step.words[2]), step.words[1] + " is shown");
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

Outcome hold(Step& step) {
    g_usleep(number<gulong>(step.words[1]) * 1000);
    return Outcome::done;
}

Outcome tell(Step& step) {
    const std::string path = output_path(step.words[1]);
    std::FILE* file = std::fopen(path.c_str(), "a");
    if (file == nullptr) {
        fail("cannot write " + path);
    }
    std::fprintf(file, "%s\n", step.words[2].c_str());
    std::fclose(file);
    return Outcome::done;
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

Outcome choose_file(Step& step) {
    GtkWidget* dialog = find_file_chooser();
    if (dialog == nullptr) {
        return wait_until(step, false, kDefaultLimit_s, "no file chooser is open");
    }
    const std::string path = output_path(step.words[1]);
    const bool is_chosen = is_file_chosen(GTK_FILE_CHOOSER(dialog), path, &step.mark);
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

constexpr size_t kAnyNumber = SIZE_MAX;

constexpr Command kCommands[] = {
    {"wait-window", 2, 2, wait_window},
    {"click", 1, 1, click},
    {"toggle", 2, 2, toggle},
    {"select", 2, 2, select},
    {"type", 2, 2, type},
    {"key", 1, kAnyNumber, key},
    {"tab-to", 1, 1, tab_to},
    {"expect", 2, 2, expect},
    {"expect-sensitive", 2, 2, expect_sensitive},
    {"wait", 3, 3, wait},
    {"wait-text", 3, 3, wait_text},
    {"wait-hidden", 2, 2, wait_hidden},
    {"hold", 1, 1, hold},
    {"tell", 2, 2, tell},
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

}  // namespace

void fail(const std::string& reason) {
    std::fprintf(stderr, "ui_script: line %d: %s\n", current_line, reason.c_str());
    end_program(kFailedStatus);
}

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

}  // namespace ui_script
