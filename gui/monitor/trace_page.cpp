// gui/monitor/trace_page.cpp - user interface: trace page of the monitor window.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/page.h"

namespace {

void open(GtkBuilder* /*builder*/) {}

}  // namespace

const MonitorPage kTracePage{
    .id = "trace",
    .title = "_Trace",
    .open = open,
    .close = nullptr,
    .add = nullptr,
    .refresh = nullptr,
    .clear = nullptr,
    .filter_changed = nullptr,
    .load = nullptr,
    .save = nullptr,
};
