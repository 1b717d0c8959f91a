// gui/busy_pointer.h - user interface: the watch cursor while a click talks to the module.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_BUSY_POINTER_H
#define GUI_BUSY_POINTER_H

// Shows the watch cursor over the main window while a click runs its exchanges with the module.
// The pointer changes before the first exchange; presses of buttons and keys that were made
// meanwhile are dropped at the end, so that an impatient second click does not undo the first.
// Guards may be nested; the outermost one counts.
class BusyPointer {
  public:
    BusyPointer();
    ~BusyPointer();
    BusyPointer(const BusyPointer&) = delete;
    BusyPointer& operator=(const BusyPointer&) = delete;
};

#endif
