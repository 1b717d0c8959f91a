// gui/monitor/transmit_state.cpp - user interface: what the transmit page says of its list as a whole.
// Uses the application's state and the configuration last read, service/apipart.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/transmit_state.h"

#include "gui/application.h"

#include "service/apipart.h"
#include "service/message_schedule.h"

#include <numeric>

namespace {

std::string what_is_missing() {
    if (!is_connect) {
        return "; they are sent once a module is connected and CAN is started.";
    }
    return "; they are sent once CAN is started.";
}

bool is_listening(int channel) {
    const auto& mode =
        upui_info.device_type == 1 ? upui_info.cfg_info_canfd.mode : upui_info.cfg_info.mode;
    return mode[channel] == TAVU_LISTEN;
}

bool has_fd(int channel) {
    return upui_info.device_type == 1 && upui_info.cfg_info_canfd.fdf_en[channel] != 0;
}

std::string channel_warning(const TransmitCounts& counts, int channel) {
    const auto place = static_cast<std::size_t>(channel);
    const std::string name = "CAN " + std::to_string(channel + 1);
    if (is_listening(channel) && counts.on[place] > 0) {
        return name + " is in listen mode and puts no message on the bus. ";
    }
    if (!has_fd(channel) && counts.fd_on[place] > 0) {
        return "CAN FD is off on " + name + ", which does not send its CAN FD messages. ";
    }
    return "";
}

}  // namespace

std::string transmit_state(const TransmitCounts& counts) {
    if (counts.all == 0) {
        return "No messages. Add one, or load a list.";
    }
    const std::size_t on = std::reduce(counts.on.begin(), counts.on.end());
    std::string text = std::to_string(on) + " of " + std::to_string(counts.all) +
                       (counts.all == 1 ? " message is on" : " messages are on");
    if (on == 0) {
        return text + '.';
    }
    if (!is_active) {
        return text + what_is_missing();
    }
    return text + (messages_are_sent() ? " and sent."
                                       : ", but nothing is sent. Stop CAN and start it again.");
}

std::string transmit_warning(const TransmitCounts& counts) {
    std::string text;
    for (int channel = 0; is_connect && channel < TAVU_CHANNEL_CNT; ++channel) {
        text += channel_warning(counts, channel);
    }
    return text.substr(0, text.find_last_not_of(' ') + 1);
}
