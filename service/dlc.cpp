// service/dlc.cpp - service: conversion between byte counts and CAN FD DLC codes (ISO 11898-1).
// Uses service/apipart.h only.
// Thread: any.
// SPDX-License-Identifier: MIT
#include "service/apipart.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array<unsigned char, 16> kDlcBytes{0, 1,  2,  3,  4,  5,  6,  7,
                                                  8, 12, 16, 20, 24, 32, 48, 64};
constexpr unsigned char kDlcMax = kDlcBytes.size() - 1;

}  // namespace

unsigned char CANFD_EncodeDLC(unsigned char u8NumberOfBytes) {
    const auto fitting = std::ranges::lower_bound(kDlcBytes, u8NumberOfBytes);
    const auto code = static_cast<unsigned char>(fitting - kDlcBytes.begin());
    return std::min(code, kDlcMax);
}

unsigned char CANFD_DecodeDLC(unsigned char u8Dlc) {
    return kDlcBytes[std::min(u8Dlc, kDlcMax)];
}
