// gui/port_search.h - user interface: asks every port for a module, and says so when it takes long.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef GUI_PORT_SEARCH_H
#define GUI_PORT_SEARCH_H

#include <vector>

// The library ports on which a module answers, rising. Opens and closes every port in turn (about
// 0.75 s for each that exists), on a thread of its own; from 0.3 s on a small window tells which
// port is being asked and how far the search is.
std::vector<int> ports_with_module();

#endif
