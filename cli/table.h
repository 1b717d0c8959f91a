// cli/table.h - command: a table of what was received of each identifier.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef CLI_TABLE_H
#define CLI_TABLE_H

#include "trace/statistics.h"

namespace cli {

// Prints the table to standard output. On a terminal it renews the one before and shows as many rows
// as there is room for; elsewhere only the last one is printed.
void print_table(const trace::Statistics& statistics, bool is_last);

}  // namespace cli

#endif
