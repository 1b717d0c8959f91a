// gui/monitor/record_page.cpp - user interface: record page of the monitor window.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/page.h"

namespace {

void open(GtkBuilder* /*builder*/) {}

}  // namespace

const MonitorPage kRecordPage{
    .id = "record",
    .title = "R_ecord",
    .open = open,
    .close = nullptr,
    .add = nullptr,
    .refresh = nullptr,
    .clear = nullptr,
    .filter_changed = nullptr,
    .load = nullptr,
    .save = nullptr,
};
