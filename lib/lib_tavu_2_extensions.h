// lib/lib_tavu_2_extensions.h - library: second part of the public interface, included by the first.
// It holds what a program needs beside the module's own calls: ports by name, waiting, time, losses.
// Thread: see the table in lib_tavu_2.h; the calls for which it says nothing may run at any time.
// SPDX-License-Identifier: MIT
#ifndef LIB_TAVU_2_EXTENSIONS_H
#define LIB_TAVU_2_EXTENSIONS_H

#include <stdint.h>

#include "lib_tavu_2.h" /* beside this file, in the sources and where it is installed */

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Version ---- */

/* Of the header that a program was compiled with, and as text: "3.1.0". */
#define TAVU_LIB_VERSION_MAJOR 3 /* a program compiled with another one does not fit the library */
#define TAVU_LIB_VERSION_MINOR 1
#define TAVU_LIB_VERSION_PATCH 0
#define TAVU_LIB_VERSION_TEXT_OF(major, minor, patch) #major "." #minor "." #patch
#define TAVU_LIB_VERSION_TEXT(major, minor, patch) TAVU_LIB_VERSION_TEXT_OF(major, minor, patch)
#define TAVU_LIB_VERSION \
    TAVU_LIB_VERSION_TEXT(TAVU_LIB_VERSION_MAJOR, TAVU_LIB_VERSION_MINOR, TAVU_LIB_VERSION_PATCH)

/* TAVU_LIB_VERSION of the library in use. */
TAVU_API const char* TAVUVersion(void);

/* ---- Codes ---- */

/* Nominal bit rates (TAVUSetBaudRate, CFG_INFO); the first four need firmware digit 3 or more. */
enum {
    TAVU_RATE_5K = 0,
    TAVU_RATE_10K = 1,
    TAVU_RATE_20K = 2,
    TAVU_RATE_50K = 3,
    TAVU_RATE_100K = 4,
    TAVU_RATE_125K = 5,
    TAVU_RATE_250K = 6,
    TAVU_RATE_500K = 7,
    TAVU_RATE_800K = 8,
    TAVU_RATE_1M = 9,
    TAVU_RATE_400K = 10,
    TAVU_RATE_CUSTOM_1 = 11,
    TAVU_RATE_CUSTOM_2 = 12
};

/* ---- Ports by name ---- */

/* Device path of a port number, "/dev/ttyACM0"; null for a number beyond 0 to 67. */
TAVU_API const char* TAVUPortName(int com_port);

/* Port number of a device path, or of its name alone, "ttyACM0"; -1 for a null or any other. */
TAVU_API int TAVUPortNumber(const char* name);

/* ---- State of a port ---- */

/* Results of TAVUPortState. */
enum {
    TAVU_PORT_ABSENT = 0, /* no such device, or no such port number */
    TAVU_PORT_FREE = 1, /* may be opened; whether a module answers only TAVUOpenDevice finds out */
    TAVU_PORT_DENIED = 2, /* this user may not open it; `who`: the group that may */
    TAVU_PORT_HELD = 3,   /* another program, or process, holds it; `who`: its name */
    TAVU_PORT_FAULTY = 4, /* it cannot be opened; `who`: what the system says */
    TAVU_PORT_OPEN = 5,   /* open here */
    TAVU_PORT_GONE = 6    /* open here, but the module is gone: close the port */
};

enum { TAVU_WHO_SIZE = 32 };

/*
 * Tells why a port can or cannot be used, at once and without an exchange with a module. A port that
 * is not open here is opened and locked for a moment, which raises its modem lines; its settings stay. `who`,
 * which may be null, has room for TAVU_WHO_SIZE characters and gets a text, empty when the system
 * does not tell.
 */
TAVU_API int TAVUPortState(int com_port, char* who);

enum { TAVU_REASON_SIZE = 128 };

/*
 * The same in words for a message: why no module can be reached on the port, and what to do about
 * it; of a free port that no module answers. `text` has room for TAVU_REASON_SIZE characters. The
 * result is that of TAVUPortState.
 */
TAVU_API int TAVUPortReason(int com_port, char* text);

/* ---- Waiting ---- */

/* Third result of TAVUWaitReceive. */
enum { TAVU_HUNG_UP = 2 };

/*
 * Waits until the port has input that was not taken yet, `timeout_ms` is over (0 or less: does not
 * wait) or the wait is cancelled. TAVU_SUCCESS: input; TAVU_FAILURE: none, cancelled (also when
 * there is input), or port not open (at once). TAVU_HUNG_UP: none, and none will come, as the module
 * is gone: close the port. The time is waited out then too, so that a caller who goes on all the
 * same does not spin.
 */
TAVU_API int TAVUWaitReceive(int com_port, int timeout_ms);

/*
 * Ends the running wait or batch of the port, or the next one if none runs: it stays in force until
 * one of them consumes it. TAVUWaitReceive(com_port, 0) thus clears one that came too late. May be
 * called from any thread, and from a signal handler, while the port is open; leaves errno alone.
 */
TAVU_API void TAVUCancelReceive(int com_port);

/* ---- Time ---- */

/*
 * Sleeps, precise to about a microsecond: the last tens of microseconds are spent polling the
 * clock. A cancellation point in any case; 0 or less returns at once.
 */
TAVU_API void TAVUSleep(int microseconds);

/* Writes the host's local time as "hh:mm:ss:mmm" and a NUL. A null pointer is ignored. */
TAVU_API void TAVUTimeText(char text[13]);

/* ---- Losses ---- */

/*
 * What arrived and reception could not use, counted for the process; all ports and threads
 * together. A report is counted when it is given up: see TAVUReceive_CANFD.
 */
typedef struct {
    uint64_t header_short;    /* reports of which at most 2 bytes came and then no rest */
    uint64_t header_unknown;  /* headers of no report that the call knows, among them CAN FD reports
                                 without the FDF flag; each costs the bytes read with it */
    uint64_t body_incomplete; /* reports with bytes missing or too many */
    uint64_t passed_over;     /* bytes passed over in search of the next report */
    uint64_t discarded;       /* bytes that had arrived unread when an exchange began */
} TAVU_LOSS_INFO;

/* Copies the counters out. A null pointer is ignored. Each counter is exact by itself. */
TAVU_API void TAVUGetLoss(TAVU_LOSS_INFO* info);

/* Sets all counters to 0. */
TAVU_API void TAVUResetLoss(void);

#ifdef __cplusplus
}
#endif

#endif
