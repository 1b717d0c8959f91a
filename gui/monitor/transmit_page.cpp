// gui/monitor/transmit_page.cpp - user interface: transmit page of the monitor window.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/page.h"

namespace {

void open(GtkBuilder* /*builder*/) {}

}  // namespace

const MonitorPage kTransmitPage{
    .id = "transmit",
    .title = "T_ransmit",
    .open = open,
    .close = nullptr,
    .add = nullptr,
    .refresh = nullptr,
    .clear = nullptr,
    .filter_changed = nullptr,
    .load = nullptr,
    .save = nullptr,
};
