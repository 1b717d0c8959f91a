// gui/monitor/record_finish.h - user interface: recordings that go on being written without the page.
// Only gui/monitor/ includes it.
// Thread: main, which never waits for the disk but in record_finish_all.
// SPDX-License-Identifier: MIT
#ifndef GUI_MONITOR_RECORD_FINISH_H
#define GUI_MONITOR_RECORD_FINISH_H

#include "gui/monitor/record_words.h"
#include "gui/monitor/recorder.h"

#include <string>

// Takes over a recorder that was stopped. When it is through, what is missing is told in the bar of
// the main window and on standard error; nothing is told when all is in the file.
void record_finish(RecorderPointer recorder, const RecordFacts& facts);

// Whether the file of that path, as the file dialog gives it, is still being written.
bool record_is_finishing(const std::string& path);

// At the end of the program: waits for all that are not through, `most_ms` milliseconds in all at
// most, and says on standard error what was not written.
void record_finish_all(int most_ms);

// What the recording of the page has to say in the bar of the main window, beside the results of
// those before it; an empty text takes it back.
void record_notice(const std::string& text, const std::string& tooltip);

// Takes back the results of earlier recordings: the user begins another one.
void record_notice_begin();

#endif
