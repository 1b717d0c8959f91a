// gui/monitor/record_dialog.h - user interface: asks for the file of a recording.
// Only gui/monitor/ includes it.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_RECORD_DIALOG_H
#define GUI_MONITOR_RECORD_DIALOG_H

#include "trace/capture.h"

#include <string>

// Opens the file dialog in `folder`, or in the working directory if that is none, with a name made
// of date and time. `chosen` is called once with a path that ends in .log or .pcap and the format
// that this means; the user has agreed to replace a file of that name. A name with another ending
// gets that of `format`. After a cancel `chosen` is not called.
void record_dialog_open(const std::string& folder, trace::CaptureFormat format,
                        void (*chosen)(const std::string& path, trace::CaptureFormat format));

// Closes the dialog if it is open.
void record_dialog_close();

#endif
