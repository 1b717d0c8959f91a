// gui/monitor/identifiers_page.cpp - user interface: identifiers page of the monitor window.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/page.h"

namespace {

void open(GtkBuilder* /*builder*/) {}

}  // namespace

const MonitorPage kIdentifiersPage{
    .id = "identifiers",
    .title = "_Identifiers",
    .open = open,
    .close = nullptr,
    .add = nullptr,
    .refresh = nullptr,
    .clear = nullptr,
    .filter_changed = nullptr,
    .load = nullptr,
    .save = nullptr,
};
