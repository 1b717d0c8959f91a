// gui/panel_fold.h - user interface: the upper panels side by side or one below the other, by the width there is.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_PANEL_FOLD_H
#define GUI_PANEL_FOLD_H

// Looks the boxes of the upper panels up and lets them follow the window's width from now on.
void pf_init();

#endif
