// gui/version.h - user interface: version of the program, also read by the build.
// Thread: any; constants only.
// SPDX-License-Identifier: MIT
#ifndef GUI_VERSION_H
#define GUI_VERSION_H

#define TAVU_UTILITY_VERSION "1.0.2"

#endif
