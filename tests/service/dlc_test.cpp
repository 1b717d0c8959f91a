// tests/service/dlc_test.cpp - test: DLC coding.
// Uses service/apipart.h.
// SPDX-License-Identifier: MIT
#include "tests/service/support.h"

TEST(Dlc, ByteCountGetsTheShortestFrameThatHoldsItAndCodesAbove15CountAs15) {
    constexpr int kLengths[]{0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
    for (int value = 0; value < 256; ++value) {
        const auto* const shortest = std::ranges::lower_bound(kLengths, std::min(value, 64));
        EXPECT_EQ(CANFD_EncodeDLC(static_cast<unsigned char>(value)), shortest - kLengths);
        EXPECT_EQ(CANFD_DecodeDLC(static_cast<unsigned char>(value)),
                  kLengths[std::min(value, 15)]);
    }
}
