// gui/port_search.cpp - user interface: asks every port for a module, and says so when it takes long.
// Uses lib/lib_tavu_2.h (opens and closes).
// Thread: main, and one for each search that ends with it.
// SPDX-License-Identifier: MIT
#include "gui/port_search.h"

#include "gui/module_watch.h"

#include "lib/lib_tavu_2.h"

#include <gtk/gtk.h>

#include <atomic>
#include <chrono>
#include <future>
#include <string>
#include <system_error>

namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 300ms;  // a shorter search needs no word
constexpr auto kRedrawPeriod = 20ms;
constexpr double kPorts = TAVU_PORT_CNT;
constexpr int kWidth_px = 320;
constexpr int kBorder_px = 18;
constexpr int kSpacing_px = 12;

std::vector<int> search(std::atomic<int>& asked) {
    std::vector<int> found;
    for (int port = 0; port < TAVU_PORT_CNT; ++port) {
        asked.store(port, std::memory_order_relaxed);
        if (TAVUOpenDevice(port) == TAVU_SUCCESS) {
            found.push_back(port);
            TAVUCloseDevice(port);
        }
    }
    return found;
}

// The small window; goes with the scope.
class SearchWindow {
  public:
    SearchWindow();
    ~SearchWindow() { gtk_widget_destroy(window_); }
    SearchWindow(const SearchWindow&) = delete;
    SearchWindow& operator=(const SearchWindow&) = delete;
    void tell(int port);

  private:
    GtkWidget* window_ = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    GtkWidget* label_ = gtk_label_new(nullptr);
    GtkWidget* bar_ = gtk_progress_bar_new();
};

SearchWindow::SearchWindow() {
    GtkWindow* window = GTK_WINDOW(window_);
    gtk_buildable_set_name(GTK_BUILDABLE(window_), "search_window");
    gtk_window_set_title(window, "Looking for a module");
    gtk_window_set_default_size(window, kWidth_px, -1);
    gtk_window_set_resizable(window, FALSE);
    gtk_window_set_position(window, GTK_WIN_POS_CENTER);
    gtk_container_set_border_width(GTK_CONTAINER(window_), kBorder_px);
    // The search cannot be cut short, so the window stays until it is over.
    g_signal_connect(window_, "delete-event", G_CALLBACK(gtk_true), nullptr);
    GtkWidget* box = gtk_box_new(GTK_ORIENTATION_VERTICAL, kSpacing_px);
    gtk_label_set_xalign(GTK_LABEL(label_), 0);
    gtk_box_pack_start(GTK_BOX(box), label_, FALSE, TRUE, 0);
    gtk_box_pack_start(GTK_BOX(box), bar_, FALSE, TRUE, 0);
    gtk_container_add(GTK_CONTAINER(window_), box);
    gtk_widget_set_size_request(bar_, kWidth_px, -1);
}

void SearchWindow::tell(int port) {
    const std::string text = "Asking " + device_name(port) + " …";
    gtk_label_set_text(GTK_LABEL(label_), text.c_str());
    gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(bar_), port / kPorts);
    gtk_widget_show_all(window_);
}

void serve_main_loop() {
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
}

}  // namespace

std::vector<int> ports_with_module() {
    std::atomic<int> asked{0};
    std::future<std::vector<int>> result;
    try {
        result = std::async(std::launch::async, [&asked] { return search(asked); });
    } catch (const std::system_error&) {  // no thread to be had
        return search(asked);
    }
    if (result.wait_for(kPatience) != std::future_status::ready) {
        SearchWindow window;
        do {
            window.tell(asked.load(std::memory_order_relaxed));
            serve_main_loop();
        } while (result.wait_for(kRedrawPeriod) != std::future_status::ready);
    }
    return result.get();
}
