// tests/service/dlc_test.cpp - test: DLC coding.
// Uses service/apipart.h.
// SPDX-License-Identifier: MIT
#include "service/apipart.h"

#include <gtest/gtest.h>

#include <algorithm>

TEST(Dlc, EveryByteCountGetsTheShortestFrameThatHoldsIt) {
    constexpr unsigned char kLengths[]{0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
    for (int code = 0, bytes = 0; bytes <= 255; ++bytes) {
        code += code < 15 && kLengths[code] < bytes ? 1 : 0;
        EXPECT_EQ(CANFD_EncodeDLC(static_cast<unsigned char>(bytes)), code);
        EXPECT_EQ(CANFD_DecodeDLC(static_cast<unsigned char>(bytes)),
                  kLengths[std::min(bytes, 15)]);
    }
}
