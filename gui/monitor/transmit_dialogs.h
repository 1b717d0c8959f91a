// gui/monitor/transmit_dialogs.h - user interface: what the transmit page asks the user.
// Only gui/monitor/ and its tests include it.
// Thread: main; the dialogs run nested main loops.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_TRANSMIT_DIALOGS_H
#define GUI_MONITOR_TRANSMIT_DIALOGS_H

#include "gui/widgets.h"

enum class ListDialog { load, save };

// Asks for a file, beginning where one was chosen last. None when the user cancels.
GText ask_for_list(ListDialog kind);

// Whether a list that was not saved may be replaced.
bool ask_to_replace();

#endif
