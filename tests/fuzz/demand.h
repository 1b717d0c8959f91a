// tests/fuzz/demand.h - test: what a fuzz target finds wrong. Any target.
// SPDX-License-Identifier: MIT
#ifndef TESTS_FUZZ_DEMAND_H
#define TESTS_FUZZ_DEMAND_H

#include <stdlib.h>

#include <stdio.h>

namespace fuzz {

// Unless `is_so`, reports that `what` does not hold and aborts, so that the input is kept.
inline void demand(bool is_so, const char* what) {
    if (!is_so) {
        fprintf(stderr, "does not hold: %s\n", what);
        abort();
    }
}

}  // namespace fuzz

#endif
