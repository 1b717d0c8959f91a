// gui/version.h - user interface: version of the program, also read by the build.
// Thread: any; constants only.
// SPDX-License-Identifier: MIT
#ifndef GUI_VERSION_H
#define GUI_VERSION_H

#include "lib/lib_tavu_2.h"

#define TAVU_UTILITY_VERSION_MAJOR 1
#define TAVU_UTILITY_VERSION_MINOR 0
#define TAVU_UTILITY_VERSION_PATCH 2
#define TAVU_UTILITY_VERSION                                                      \
    TAVU_LIB_VERSION_TEXT(TAVU_UTILITY_VERSION_MAJOR, TAVU_UTILITY_VERSION_MINOR, \
                          TAVU_UTILITY_VERSION_PATCH)

#endif
