// gui/module_watch.h - user interface: notices what happens to the module without a click, and why
// a port cannot be used.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_MODULE_WATCH_H
#define GUI_MODULE_WATCH_H

#include <glib.h>

#include <array>
#include <cstdint>
#include <string>

// Timer, four times a second: notices that the open module is gone, and losses while its controller
// is started. Always returns TRUE, so that it goes on.
gboolean watch_module(gpointer user_data);
inline constexpr guint kWatchPeriod_ms = 250;

// A kind of loss.
struct LossRow {
    std::uint64_t count = 0;
    const char* one = nullptr;      // in words, behind the number; null: no loss that a user misses
    const char* several = nullptr;  // the same for another number than 1
    const char* name = "";          // of the counter
};
using LossRows = std::array<LossRow, 7>;

// Shows the losses so far, if there are any.
void show_losses();
// What was lost when it was last looked: while the controller is started, and when it is stopped.
const LossRows& losses_seen();
// The same since the program began, whatever Start and Clear reset: take differences. Looks anew
// while the controller is started.
const LossRows& losses_in_all();
// "12 frames came faster than the display could take them"; empty for a row that says nothing.
std::string loss_words(const LossRow& row);
// The rows of `later` with what came to them since `earlier`, in words parted by "; ".
std::string loss_words_between(const LossRows& earlier, const LossRows& later);
// Counts losses of both layers from now on, and takes back the notice of earlier ones.
void losses_begin();

// Says which settings the module did not take (bits CAN_SET_ of service/apipart.h), or takes the
// notice back when there are none.
void notice_refused_settings(int steps);

// Name of a port's device: that of the port list, but for the first sixteen, which are ttyCAN0 to 15.
std::string device_name(int com_port);
// Why the module on a port cannot be reached and what to do.
std::string port_reason(int com_port);
// The same for every port that exists, a line for each reason, when no module was found.
std::string no_module_reason();

#endif
