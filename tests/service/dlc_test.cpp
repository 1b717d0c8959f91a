// tests/service/dlc_test.cpp - test: DLC coding.
// Uses service/apipart.h.
// SPDX-License-Identifier: MIT
#include "service/apipart.h"

#include <gtest/gtest.h>

#include <algorithm>

TEST(Dlc, EveryByteCountGetsTheShortestFrameThatHoldsIt) {
    for (int bytes = 0; bytes <= 255; ++bytes) {
        const unsigned char code = CANFD_EncodeDLC(static_cast<unsigned char>(bytes));
        EXPECT_GE(CANFD_DecodeDLC(code), std::min(bytes, 64));
        if (code > 0) {
            EXPECT_LT(CANFD_DecodeDLC(static_cast<unsigned char>(code - 1)), bytes);
        }
    }
    EXPECT_EQ(CANFD_DecodeDLC(14), 48);
    EXPECT_EQ(CANFD_DecodeDLC(200), 64);
}
