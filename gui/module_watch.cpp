// gui/module_watch.cpp - user interface: notices a module that is gone, and losses; explains ports.
// Uses gui/notice_bar.h, service/traffic_queues.h, lib/lib_tavu_2.h (state of a port, losses).
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/module_watch.h"

#include "gui/application.h"
#include "gui/notice_bar.h"
#include "gui/widgets.h"

#include "service/apipart.h"
#include "service/traffic_queues.h"

#include "lib/lib_tavu_2.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

LossRows seen{};
LossRows in_all{};  // what was seen before the last reset too

LossRows loss_rows() {
    const TRAFFIC_LOSS_INFO display = traffic_loss();
    TAVU_LOSS_INFO line{};
    TAVUGetLoss(&line);
    return {{
        {display.recv_ring_full, "frame came faster than the display could take it",
         "frames came faster than the display could take them", "recv_ring_full"},
        {display.send_ring_full, "sent frame is missing from the log",
         "sent frames are missing from the log", "send_ring_full"},
        {line.body_incomplete + line.header_short, "report of the module was damaged",
         "reports of the module were damaged", "body_incomplete + header_short"},
        {line.header_unknown, "report of the module was not understood",
         "reports of the module were not understood", "header_unknown"},
        {line.passed_over, "byte between reports was passed over",
         "bytes between reports were passed over", "passed_over"},
        {line.discarded, "byte gave way to a command", "bytes gave way to a command", "discarded"},
        // The panel shows the latest report of a kind, so this is no loss that a user would miss.
        {display.report_replaced, nullptr, nullptr, "report_replaced"},
    }};
}

void look() {
    const LossRows rows = loss_rows();
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const std::uint64_t count = in_all[i].count + rows[i].count - seen[i].count;
        in_all[i] = rows[i];
        in_all[i].count = count;
    }
    seen = rows;
}

// Why some ports cannot be used.
struct Reason {
    std::string ports;
    std::string text;
};

// A text from outside, which need not be UTF-8, as a sentence.
std::string sentence(const char* text) {
    const GText valid(g_utf8_make_valid(text, -1));
    return valid.get() + std::string(".");
}

}  // namespace

void show_losses() {
    std::string words;
    std::string counters;
    look();
    for (const LossRow& row : seen) {
        counters += std::string(counters.empty() ? "" : "\n") + row.name + " = " +
                    std::to_string(row.count);
        if (const std::string text = loss_words(row); !text.empty()) {
            words += (words.empty() ? "Lost: " : "; ") + text;
        }
    }
    if (!words.empty()) {
        notice_show(Notice::losses, words + ". Clear begins to count anew.", counters);
    }
}

const LossRows& losses_seen() {
    return seen;
}

const LossRows& losses_in_all() {
    if (is_active) {
        look();
    }
    return in_all;
}

std::string loss_words_between(const LossRows& earlier, const LossRows& later) {
    std::string words;
    for (std::size_t i = 0; i < later.size(); ++i) {
        LossRow row = later[i];
        row.count -= earlier[i].count;
        if (const std::string text = loss_words(row); !text.empty()) {
            words += (words.empty() ? "" : "; ") + text;
        }
    }
    return words;
}

std::string loss_words(const LossRow& row) {
    if (row.count == 0 || row.one == nullptr) {
        return "";
    }
    return std::to_string(row.count) + ' ' + (row.count == 1 ? row.one : row.several);
}

gboolean watch_module(gpointer /*user_data*/) {
    if (is_connect && TAVUPortState(com_port, nullptr) == TAVU_PORT_GONE) {
        notice_show(Notice::gone, "The module on " + device_name(com_port) +
                                      " is gone; what is sent goes nowhere. Press Disconnect, plug "
                                      "it in, then press Connect.");
    }
    // Not once stopped: what a stop leaves unread is no loss.
    if (is_active) {
        show_losses();
    }
    return G_SOURCE_CONTINUE;
}

void losses_begin() {
    losses_in_all();  // looks, or what came since the last look would be forgotten
    traffic_loss_reset();
    TAVUResetLoss();
    seen = {};
    notice_hide(Notice::losses);
}

void notice_refused_settings(int steps) {
    static constexpr std::array<std::pair<int, const char*>, 5> kSteps{{
        {CAN_SET_FD, "CAN FD and data bit rates"},
        {CAN_SET_MODE, "listen mode"},
        {CAN_SET_BAUD, "bit rates"},
        {CAN_SET_FILTER_1, "filter of CAN 1"},
        {CAN_SET_FILTER_2, "filter of CAN 2"},
    }};
    std::string names;
    for (const auto& [step, name] : kSteps) {
        if ((steps & step) != 0) {
            names += (names.empty() ? "" : ", ") + std::string(name);
        }
    }
    if (names.empty()) {
        notice_hide(Notice::settings);
    } else {
        notice_show(Notice::settings,
                    "The module did not take: " + names + ". It goes on with what it had before.");
    }
}

std::string device_name(int com_port) {
    constexpr std::string_view kFolder = "/dev/";
    return std::string(TAVUPortName(com_port)).substr(kFolder.size());
}

std::string port_reason(int com_port) {
    std::array<char, TAVU_REASON_SIZE> reason{};
    TAVUPortReason(com_port, reason.data());
    return sentence(reason.data());
}

std::string no_module_reason() {
    std::vector<Reason> reasons;
    for (int port = 0; port < TAVU_PORT_CNT; ++port) {
        std::array<char, TAVU_REASON_SIZE> reason{};
        if (TAVUPortReason(port, reason.data()) == TAVU_PORT_ABSENT) {
            continue;
        }
        const std::string text = sentence(reason.data());
        const auto same = std::ranges::find(reasons, text, &Reason::text);
        if (same == reasons.end()) {
            reasons.push_back({device_name(port), text});
        } else {
            same->ports += ", " + device_name(port);
        }
    }
    if (reasons.empty()) {
        return "No module was found: no serial device is there on which one could be. Plug the "
               "module in and start the program again.";
    }
    std::string lines = "No module was found. When this is mended, start the program again.";
    for (const Reason& reason : reasons) {
        lines += '\n' + reason.ports + ": " + reason.text;
    }
    return lines;
}
