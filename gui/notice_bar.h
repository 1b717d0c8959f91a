// gui/notice_bar.h - user interface: the bar above the frame log that says what goes wrong.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_NOTICE_BAR_H
#define GUI_NOTICE_BAR_H

#include <string>

// What there may be to say, the most urgent first. Each kind has one text at a time.
enum class Notice { gone, connect, start, settings, recording, losses, no_module, kEnd };

// Puts the bar, hidden, into the box of the main interface file that is kept for it; without that
// box there is no bar and the calls below do nothing.
void nb_init();
// Shows a text, instead of the one of that kind if there is one, and announces it to assistive
// technology. The bar never takes the focus.
void notice_show(Notice kind, const std::string& text, const std::string& tooltip = {});
void notice_hide(Notice kind);

// Appends a line to others of a text; an empty one is left out.
void append_line(std::string* lines, const std::string& line);

#endif
