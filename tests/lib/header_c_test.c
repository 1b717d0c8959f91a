/* tests/lib/header_c_test.c - test: a C99 program against the shared library and its header.
 * SPDX-License-Identifier: MIT */
#include "lib/lib_tavu_2.h"

int main(void) {
    CAN_FRAME_INFO frame = {0};
    RANGE_FILTER_INFO table = {0};
    const int is_laid_out =
        sizeof table == 260 && sizeof frame.data == 64 && sizeof(CFG_CANFD) == 4;
    const int is_callable = TAVUSend(0, frame) == TAVU_FAILURE &&
                            TAVUReceive_CANFD(0, &frame) == TAVU_NO_REPORT &&
                            TAVUSetRecvBlock(0, true) == TAVU_READ_MODE_FAILURE;
    return is_laid_out && is_callable ? 0 : 1;
}
