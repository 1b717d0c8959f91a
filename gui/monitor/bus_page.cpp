// gui/monitor/bus_page.cpp - user interface: bus page of the monitor window.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/page.h"

namespace {

void open(GtkBuilder* /*builder*/) {}

}  // namespace

const MonitorPage kBusPage{
    .id = "bus",
    .title = "_Bus",
    .open = open,
    .close = nullptr,
    .add = nullptr,
    .refresh = nullptr,
    .clear = nullptr,
    .filter_changed = nullptr,
    .load = nullptr,
    .save = nullptr,
};
