// gui/guipart.h - user interface: all of it, for a program that drives the panels from outside.
// A panel's own file includes the headers it uses instead, so that a change rebuilds few files.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_GUIPART_H
#define GUI_GUIPART_H

#include "gui/application.h"
#include "gui/bus_status.h"
#include "gui/busy_pointer.h"
#include "gui/config_dialogs.h"
#include "gui/connection_panel.h"
#include "gui/cross_mark.h"
#include "gui/data_editor.h"
#include "gui/data_rates.h"
#include "gui/frame_log.h"
#include "gui/key_filter.h"
#include "gui/module_watch.h"
#include "gui/monitor/monitor.h"
#include "gui/notice_bar.h"
#include "gui/panel_fold.h"
#include "gui/port_search.h"
#include "gui/send_panel.h"
#include "gui/settings_panel.h"
#include "gui/shortcuts.h"
#include "gui/start_up.h"
#include "gui/status_log.h"
#include "gui/widgets.h"

#include "service/apipart.h"
#include "service/traffic_queues.h"

#include <gtk/gtk.h>

#endif
