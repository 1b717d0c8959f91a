// service/dlc.cpp - service: conversion between byte counts and CAN FD DLC codes (ISO 11898-1).
// Uses service/apipart.h; the table is the library's.
// Thread: any.
// SPDX-License-Identifier: MIT
#include "service/apipart.h"

unsigned char CANFD_EncodeDLC(unsigned char u8NumberOfBytes) {
    constexpr unsigned char kDlcMax = 15;
    unsigned char code = 0;
    while (code < kDlcMax && DecodeDLC_CANFD(code) < u8NumberOfBytes) {
        ++code;
    }
    return code;
}

unsigned char CANFD_DecodeDLC(unsigned char u8Dlc) {
    return static_cast<unsigned char>(DecodeDLC_CANFD(u8Dlc));
}
