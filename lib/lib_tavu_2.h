// lib/lib_tavu_2.h - library: the public interface of the device library.
// Every layer and any program may include it; it compiles alone as C99 and as C++20.
// Thread: see the table below.
// SPDX-License-Identifier: MIT
/*
 * Contract
 *
 * Ports. Every call takes a port number, 0 to 67, which stands for a device path: 0-15
 * /dev/ttyCAN0-15, 16-21 /dev/ttyUSB0-5, 22-23 /dev/ttyAMA0-1, 24-39 /dev/ttyACM0-15, 40-41
 * /dev/rfcomm0-1, 42-43 /dev/ircomm0-1, 44-47 /dev/cuau0-3, 48-51 /dev/cuaU0-3, 52-67
 * /dev/serusb0-15 (TAVUPortName, TAVUPortNumber). Any other number, and a port that is not open,
 * give the call's failure result before anything is sent.
 *
 * A session. TAVUOpenDevice, after which both channels are stopped; the settings: TAVUSetCFG_CANFD,
 * TAVUSetMode, TAVUSetBaudRate, TAVUSetFilter or TAVUClearFilter, TAVUSetErrorType; then
 * TAVUInitCAN to start, TAVUSend or TAVUSend_CANFD to send; to receive, TAVUWaitReceive, and
 * TAVUReceive_CANFD until it gives no report; TAVUInitCAN to stop, TAVUCloseDevice. A module may
 * refuse new settings while a channel runs, so stop before changing any. The module keeps its
 * settings when the port is closed.
 *
 * Results, unless a call says otherwise: TAVU_SUCCESS (0) and TAVU_FAILURE (1). The failures by
 * meaning are
 *   - the caller's mistake: port number, port not open, null pointer, value out of range where the
 *     call checks it; nothing was sent;
 *   - the port failed: device missing, locked by this or another process, unplugged, write error,
 *     or no room for output within 100 ms;
 *   - the module refused: it answered with a non-zero status; its earlier setting stays in force;
 *   - no valid answer within 150 ms, or one that belongs to another command.
 * Nothing is retried and nothing is rolled back. The reception calls give TAVU_REPORT (1) for a
 * record filled and TAVU_NO_REPORT (0) for none.
 *
 * Values. All ranges are inclusive and start at 0 unless said. Channel arrays and pairs of
 * arguments go CAN 1 first. Times are in the unit that the name or comment gives. Settings not
 * checked here are sent as their low byte and judged by the module. A call that waits for an answer
 * takes 150 ms for each exchange with the module; the number of exchanges is given where it is not
 * one.
 *
 * Memory. The caller owns every record and buffer; the library keeps no pointer after a call
 * returns. Records are passed by value into the library and by pointer to be filled. A null pointer
 * gives the failure result. The library allocates one node for each open port and frees it on
 * close; beside that only the configuration-file and port-state calls allocate, for their time.
 *
 * Threads. The groups are
 *   connect    TAVUOpenDevice, TAVUOpenDeviceSCT, TAVUOpenSocketCAN, TAVUCloseDevice,
 *              TAVUFlexibleVCOM, TAVU_search_com
 *   configure  every call that reads or changes the module's settings or state, and TAVUTesting
 *   query      TAVUGetBusError
 *   send       TAVUSend, TAVUSend_CANFD
 *   receive    TAVUReceive, TAVUReceive_CANFD, TAVUReceiveNonblock, TAVUWaitReceive
 *   free       the range-filter calls, TAVUCancelReceive, TAVUSetRecvBlock, TAVUPortState,
 *              TAVUPortReason
 * and on one port a call of a row may run while one of a column does:
 *
 *               connect  configure  query  send  receive  free
 *   connect       no        no       no     no     no      no
 *   configure     no        no       no     yes   (1)      yes
 *   query         no        no       no     yes   (2)      yes
 *   send          no        yes      yes    no     yes     yes
 *   receive       no       (1)      (2)     yes    no      yes
 *   free          no        yes      yes    yes    yes     yes
 *
 *   (1) Safe, but both read the same input: either may take the other's bytes, and every exchange
 *       first discards unread input.
 *   (2) Meant to be used so; reports that have arrived and were not read yet are discarded.
 * Different ports do not affect each other, with two exceptions. Connect calls change the list of
 * open ports that every call walks, so none of them may run while a call on any port does. And the
 * pacing of the two channels is one for the process: a start on one port sets it for all.
 * DecodeDLC_CANFD and the loss, sleep and time calls are free of all this.
 *
 * Closing during a read, wait or send on the port is an error of the caller: the close frees what
 * the other call is using. End a waiting or collecting thread with TAVUCancelReceive, let senders
 * finish or cancel them, join both, then close. In waiting read mode (TAVUSetRecvBlock) only input
 * ends a read, so prefer TAVUWaitReceive.
 *
 * A signal ends no call, whatever its handler does, but for TAVUCancelReceive.
 *
 * Cancelling a thread (pthread_cancel, deferred) inside TAVUSend, TAVUSend_CANFD, TAVUSleep or
 * TAVUWaitReceive is safe: no lock is held and nothing is left allocated. It takes effect in the
 * waits and is put off during a write, 100 ms at most (and as long again behind another writer of
 * the port), so a frame command is written whole or not at all; if the port has room for a part of
 * it only during all that time, the call fails and the rest goes out before the next command.
 */
#ifndef LIB_TAVU_2_H
#define LIB_TAVU_2_H

#include <stdbool.h>
#include <stdint.h>

#define TAVU_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* Sizes: port numbers, channels of a module, entries of a range-filter table. */
enum { TAVU_PORT_CNT = 68, TAVU_CHANNEL_CNT = 2, TAVU_RANGE_CNT = 16 };

/* Results of all calls but the reception calls; the third is TAVUSetRecvBlock's failure. */
enum { TAVU_SUCCESS = 0, TAVU_FAILURE = 1, TAVU_READ_MODE_FAILURE = -1 };
/* Results of TAVUReceive and TAVUReceive_CANFD. */
enum { TAVU_NO_REPORT = 0, TAVU_REPORT = 1 };

enum { TAVU_CAN_1 = 0, TAVU_CAN_2 = 1 };     /* channel */
enum { TAVU_INACTIVE = 0, TAVU_ACTIVE = 1 }; /* state of a channel's CAN controller */
enum { TAVU_NORMAL = 0, TAVU_LISTEN = 1 };   /* mode: a listener neither sends nor acknowledges */
enum { TAVU_FDF_OFF = 0, TAVU_FDF_ON = 1 };  /* CAN FD format */
enum { TAVU_BRS_OFF = 0, TAVU_BRS_ON = 1 };  /* bit-rate switch of a CAN FD frame */
enum { TAVU_DIS_RTR = 0, TAVU_EN_RTR = 1 };  /* data frame, remote frame */
/* Identifier or filter type: 11-bit, 29-bit. Filters also know 0, no filter. */
enum { TAVU_SID = 1, TAVU_EID = 2 };
enum { TAVU_SID_MAX = 0x7FF, TAVU_EID_MAX = 0x1FFFFFFF }; /* highest identifier of each type */
/* Error reports the module sends: none, EEPROM errors, bus errors, all. */
enum { TAVU_DIS_ALL = 0, TAVU_EE_ERR = 1, TAVU_ROM_ERR = 1, TAVU_BUS_ERR = 2, TAVU_EN_ALL = 255 };
/* Kind of a report (CAN_FRAME_INFO msg_type). */
enum {
    TAVU_DATA_TYPE = 0,      /* a CAN 2.0 or CAN FD frame */
    TAVU_EEERR_TYPE = 1,     /* EEPROM error of the module */
    TAVU_ROMERR_TYPE = 1,    /* another name of it */
    TAVU_BUSERR_TYPE = 2,    /* bus error, with the error data of both channels */
    TAVU_GETBUS_TYPE = 3,    /* answer to TAVUGetBusError */
    TAVU_BUSERR_PSR_TYPE = 4 /* bus error, with the protocol status of both channels */
};

/* Version texts, NUL-terminated. */
typedef struct {
    char fw[16];    /* firmware, "03.10"; its second digit, here 3, is the firmware digit */
    char api[16];   /* this library, as TAVUVersion gives it */
    char model[16]; /* build identifier, "1234" */
} VER_INFO;

/* Classic configuration of both channels; the bit-rate codes are TAVU_RATE_... */
typedef struct {
    unsigned char baud[2];     /* bit-rate code */
    unsigned char mode[2];     /* TAVU_NORMAL, TAVU_LISTEN */
    unsigned char flt_type[2]; /* 0, TAVU_SID, TAVU_EID */
    unsigned int flt_id[2];    /* acceptance identifier */
    unsigned int flt_mask[2];  /* acceptance mask; of a 29-bit filter the low 29 bits */
    unsigned char err_set;     /* error reports of the module */
} CFG_INFO;

/* What a virtual serial port of a module says about itself. */
typedef struct {
    unsigned int skip;    /* non-zero: takes no part in pairing */
    unsigned int assign;  /* value the module holds for this port, 0 or 1 in use */
    unsigned int order;   /* order number inside the module */
    int com_port;         /* port number that was asked */
    unsigned char uid[8]; /* identifier shared by all virtual ports of one module */
} VCOM_INFO;

/* Acceptance filter of one channel, applied by the module: only frames of its type pass. */
typedef struct {
    int CAN_port;        /* TAVU_CAN_1, TAVU_CAN_2 */
    int flt_type;        /* 0, TAVU_SID, TAVU_EID */
    unsigned int flt_id; /* acceptance identifier */
    unsigned int mask;   /* acceptance mask: a bit that is 1 must agree, 0 lets every frame pass */
} FILTER_INFO;

/* One identifier range of a range-filter table. */
typedef struct {
    unsigned int en;       /* non-zero: in use */
    unsigned int id_type;  /* TAVU_SID, TAVU_EID */
    unsigned int id_start; /* lowest identifier that passes */
    unsigned int id_end;   /* highest identifier that passes */
} RANGE_INFO;

/* Range filter of one channel, applied by this library to received frames; 260 bytes. */
typedef struct {
    unsigned char enable;      /* non-zero: only frames inside one of the ranges pass */
    unsigned char reserved[3]; /* zero */
    RANGE_INFO range[TAVU_RANGE_CNT];
} RANGE_FILTER_INFO;

/* CAN FD settings of both channels. */
typedef struct {
    unsigned char CAN1_DataRate; /* data-phase bit rate in Mbit/s: 2, 4, 5, 6, 8, 10 */
    unsigned char CAN1_FDF_EN;   /* TAVU_FDF_OFF, TAVU_FDF_ON */
    unsigned char CAN2_DataRate;
    unsigned char CAN2_FDF_EN;
} CFG_CANFD;

/* CFG_INFO and the CAN FD settings of both channels. */
typedef struct {
    unsigned char baud[2];
    unsigned char mode[2];
    unsigned char flt_type[2];
    unsigned int flt_id[2];
    unsigned int flt_mask[2];
    unsigned char err_set;
    unsigned char fdf_en[2];   /* TAVU_FDF_OFF, TAVU_FDF_ON */
    unsigned char datarate[2]; /* Mbit/s */
} CANFD_CFG_INFO;

/* One set of bit-timing parameters, carried without interpretation. */
typedef struct {
    unsigned char index; /* which set, 0 to 2 */
    unsigned char param1, param2, param3, param4;
    unsigned char param5; /* not sent, 0 after a read */
    unsigned char param6;
    uint16_t param7; /* only the low byte is sent and read */
    unsigned char param8, param9, param10, param11, param12, param13, param14, param15, param16;
} TIMING_CFG_CANFD;

/* Ports on which a scan found a module. */
typedef struct {
    int cnt;
    int com_port[TAVU_PORT_CNT]; /* `cnt` numbers, rising; the rest 0 */
} SEARCH_COM_INFO;

/* A raw exchange. */
typedef struct {
    uint32_t reserved;           /* not read */
    int send_len;                /* bytes of send_buf to send, 0 to 256 */
    int recv_len;                /* bytes to read at most, 0 to 256; 0: no answer is read */
    unsigned char send_buf[256]; /* whole frame with checksum and closing bytes */
    unsigned char recv_buf[256]; /* answer; of recv_len bytes those that did not come are 0 */
} TEST_INFO;

/* Time stamp taken by the module. */
typedef struct {
    uint32_t second;
    uint32_t micro_second;
} TIME_ST_T;

/* One frame or report. A received report writes the fields of its kind and leaves the others. */
typedef struct {
    int CAN_port;                 /* TAVU_CAN_1, TAVU_CAN_2 */
    int id_type;                  /* TAVU_SID, TAVU_EID */
    int rtr;                      /* TAVU_DIS_RTR, TAVU_EN_RTR */
    int dlc;                      /* DLC code, 0 to 15 (CAN 2.0: 0 to 8) */
    int msg_type;                 /* kind of report */
    int brs;                      /* TAVU_BRS_OFF, TAVU_BRS_ON */
    int esi;                      /* CAN FD error state indicator, 0 or 1 */
    int fdf;                      /* TAVU_FDF_OFF, TAVU_FDF_ON */
    char recv_time[13];           /* host local time, "hh:mm:ss:mmm" */
    unsigned int id;              /* 11 or 29 bits */
    unsigned char data[64];       /* payload; CAN 2.0: bytes 0 to 7 */
    unsigned char data_err[2][6]; /* error or status data of CAN 1, CAN 2, as the module sent them:
                                     nothing is known of bytes 0 to 2; 3 to 5 are, of bus errors,
                                     errors logged, receive counter (bit 7: error passive),
                                     transmit counter, and else the protocol status */
    TIME_ST_T timestamp;          /* of CAN FD and time-stamped CAN 2.0 frames, others write none;
                                     since a moment of the module's choice, so take differences */
} CAN_FRAME_INFO;

/* A batch to collect. */
typedef struct {
    uint32_t cnt;                   /* most reports to collect, 1 or more */
    uint32_t interval;              /* limit in milliseconds of the process's processor time */
    CAN_FRAME_INFO* can_frame_info; /* caller's array of at least `cnt` records */
} NON_BLOCK_INFO;

/* ---- Connection ---- */

/*
 * Opens a port at 9600 bit/s, 8N1, and proves that a module answers on it; both its channels are
 * stopped then. Modules with firmware digit 5 have their virtual ports paired on the way. About
 * 0.75 s (5 exchanges), plus the pairing. TAVU_FAILURE leaves the port as it was.
 */
TAVU_API int TAVUOpenDevice(int com_port);

/*
 * Stops both channels and closes the port; output that is still unsent gets up to 500 ms to leave.
 * TAVU_FAILURE only if it was not open.
 */
TAVU_API int TAVUCloseDevice(int com_port);

/*
 * Reads the versions (2 exchanges). On failure `fw` and `model` are left as they were; `api` is
 * filled in every case.
 */
TAVU_API int TAVUShowVer(int com_port, VER_INFO* info);

/* Reads whether the channels run: TAVU_INACTIVE, TAVU_ACTIVE. On failure both stay untouched. */
TAVU_API int TAVUGetCANStatus(int com_port, int* can1, int* can2);

/*
 * Brings the channels into the given states, TAVU_INACTIVE or TAVU_ACTIVE. Before a start, running
 * channels (also: an unreadable status) are stopped, and the pacing of both channels is derived
 * from the module's bit rates; up to 4 exchanges. The result is that of the last one. Frames that
 * come right behind the confirmation of a start are kept. When frames arrive without a pause, the
 * confirmation of a stop may be lost among them: the channels have stopped all the same.
 */
TAVU_API int TAVUInitCAN(int com_port, int can1, int can2);

/* The single start/stop exchange of TAVUInitCAN. */
TAVU_API int TAVUInitCANReal(int com_port, int can1, int can2);

/* Resets the CAN controller. */
TAVU_API int TAVUResetCAN(int com_port);

/* Reads the classic configuration. On failure the record is all zero. */
TAVU_API int TAVUGetCfg(int com_port, CFG_INFO* info);

/* Reads what the virtual port says about itself. On failure the record is untouched. */
TAVU_API int TAVUGetVCOMConfig(int com_port, VCOM_INFO* info);

/* Sets the `assign` value of the virtual port; the low byte is sent. */
TAVU_API int TAVUSetVCOMConfig(int com_port, int value);

/*
 * Looks among all other ports for the partner of the open virtual port `com_port` and, when port
 * numbers and order numbers disagree, sends the partner the inverse of the own `assign`. Every port
 * it opens is closed again: about 1 s for each candidate whose device exists. TAVU_SUCCESS: partner
 * handled, or the port takes no part; TAVU_FAILURE: own values unreadable or no partner found.
 * TAVUOpenDevice calls it where needed.
 */
TAVU_API int TAVUFlexibleVCOM(int com_port);

/* ---- Channel configuration ---- */

/*
 * Sets the nominal bit rates by code (see CFG_INFO); 3 exchanges. Codes 0 to 3 are refused without
 * being sent when the firmware digit is 2 or less, or unreadable.
 */
TAVU_API int TAVUSetBaudRate(int com_port, int can1, int can2);

/* Sets the operating modes: TAVU_NORMAL, TAVU_LISTEN. */
TAVU_API int TAVUSetMode(int com_port, int can1, int can2);

/* Sets which error reports the module sends: TAVU_DIS_ALL to TAVU_EN_ALL. */
TAVU_API int TAVUSetErrorType(int com_port, int type);

/* Sets the acceptance filter of one channel. A channel other than 0 or 1 is refused. */
TAVU_API int TAVUSetFilter(int com_port, FILTER_INFO info);

/* Removes the acceptance filter of channel `can_port`, TAVU_CAN_1 or TAVU_CAN_2. */
TAVU_API int TAVUClearFilter(int com_port, int can_port);

/*
 * Asks for the bus-error counters without waiting: the answer comes as a report of kind
 * TAVU_GETBUS_TYPE. TAVU_SUCCESS: the request was written. As unread input is discarded, a report
 * may be cut; if CAN FD reports follow without a pause, some of them can be lost until reception is
 * in step again. So do not ask often.
 */
TAVU_API int TAVUGetBusError(int com_port);

/*
 * Operates the range filters, one operation for each channel: 1 disables, 2 enables, 3 disables and
 * clears the table, any other value leaves the channel alone. Sends nothing.
 */
TAVU_API int TAVUInitRangeFilter(int com_port, int can1, int can2);

/* Copies both range-filter tables out. On failure both records are untouched. */
TAVU_API int TAVUGetRangeFilter(int com_port, RANGE_FILTER_INFO* can1, RANGE_FILTER_INFO* can2);

/*
 * Loads the ranges of the tables given; a null pointer leaves that channel's table as it is. A
 * loaded table is disabled until TAVUInitRangeFilter enables it.
 */
TAVU_API int TAVUSetRangeFilter(int com_port, const RANGE_FILTER_INFO* can1,
                                const RANGE_FILTER_INFO* can2);

/* ---- Configuration file ---- */

/*
 * Writes the classic configuration to the file `path`: 92 bytes, 23 encoded words. TAVU_FAILURE:
 * the module did not deliver it (no file is created) or the file could not be created. Errors while
 * writing are not reported.
 */
TAVU_API int TAVUExpCfg(int com_port, const char* path);

/*
 * Applies the first 92 bytes of the file `path`: bit rates, modes, error reports, both filters,
 * each step whatever the earlier ones gave (7 exchanges). TAVU_FAILURE: `path` is no regular file,
 * cannot be read or is shorter (nothing was sent), or a step failed; the others stay in force.
 */
TAVU_API int TAVUImpCfg(int com_port, const char* path);

/* ---- CAN FD configuration ---- */

/* Sets data rate and CAN FD enable of both channels. */
TAVU_API int TAVUSetCFG_CANFD(int com_port, CFG_CANFD info);

/* Reads the configuration with its CAN FD part. On failure the record is all zero. */
TAVU_API int TAVUGetCFG_CANFD(int com_port, CANFD_CFG_INFO* info);

/* Writes the bit-timing set that `info.index` names. */
TAVU_API int TAVUSet_TimingCFG_CANFD(int com_port, TIMING_CFG_CANFD info);

/*
 * Reads bit-timing set `index`, 0 to 2. A higher number fails and leaves the record untouched; any
 * other failure leaves it all zero.
 */
TAVU_API int TAVUGet_TimingCFG_CANFD(int com_port, TIMING_CFG_CANFD* info, unsigned char index);

/* ---- Further calls ---- */

/* The same as TAVUOpenDevice. */
TAVU_API int TAVUOpenDeviceSCT(int com_port);

/*
 * Opens a port without asking for an answer: TAVU_SUCCESS on any serial device that opens. Stores
 * the descriptor (non-blocking, and the library's to close) through `fd` unless that is null; a
 * failure leaves `fd` untouched. Pending input is kept until the first exchange; the rest is as in
 * TAVUOpenDevice (3 exchanges).
 */
TAVU_API int TAVUOpenSocketCAN(int com_port, int* fd);

/*
 * Opens and closes every port from 23 to 67 and leaves 0 to 22 out, behind which other equipment may
 * be; about 1 s for each module, 0.3 s for a device that does not answer.
 */
TAVU_API SEARCH_COM_INFO TAVU_search_com(void);

/*
 * Sends `send_buf` as it stands and reads the answer into `recv_buf` without examining it.
 * TAVU_FAILURE: a length out of range (the record stays untouched), the write failed, or nothing
 * came within 150 ms.
 */
TAVU_API int TAVUTesting(int com_port, TEST_INFO* info);

/*
 * Read mode: `block` set, reads wait for the first byte; clear (as opened), they return at once.
 * TAVU_SUCCESS, or TAVU_READ_MODE_FAILURE: port not open or settings not applied. Exchanges keep
 * their 150 ms limit in either mode.
 */
TAVU_API int TAVUSetRecvBlock(int com_port, bool block);

/* Reads the two bytes of the build identifier. On failure they are untouched. */
TAVU_API int TAVUGetBLDID(int com_port, unsigned char bldid[2]);

/* ---- Transmission ---- */

/*
 * Sends a CAN 2.0 frame; uses `CAN_port`, `id_type`, `rtr`, `dlc`, `id` and `data` (8 bytes). Waits
 * the channel's pacing delay first (100 us until TAVUInitCAN derives it from the bit rate), then
 * writes once. TAVU_SUCCESS: the command was written whole; the module is not asked. Field values
 * out of range are not refused: they run into the neighbouring bits.
 */
TAVU_API int TAVUSend(int com_port, CAN_FRAME_INFO info);

/*
 * The same for a CAN FD frame of up to 64 bytes; also uses `brs`, `esi` and `fdf`. With `fdf` 0 the
 * command is sent all the same, and the module puts a CAN 2.0 frame on the bus.
 */
TAVU_API int TAVUSend_CANFD(int com_port, CAN_FRAME_INFO info);

/* ---- Reception ---- */

/*
 * Takes one report of any kind off the port. TAVU_NO_REPORT: nothing pending (at once, except in
 * waiting read mode), a header that is unknown (3 bytes are dropped) or incomplete after 2 ms, a
 * body that stopped for 20 ms, an empty bus-error report, a frame that the range filter removed
 * (the record is all zero then, untouched otherwise), or the caller's mistake. Clear the record
 * before each call: only the fields of the kind are set.
 *
 * Input is read in bulk into a buffer of the port and handed out from there; an exchange discards
 * that too. A report that stopped arriving is not lost: its bytes are kept, and when more come, a
 * later call believes the report thus completed if it ends in CR LF, or drops the part and goes on
 * behind it. After such a drop, two unknown headers in a row, or a report that does not close as
 * the others of this port did and has no report behind it or a whole one inside it, the next whole
 * report is sought. A single report is believed whatever its closing bytes are.
 */
TAVU_API int TAVUReceive_CANFD(int com_port, CAN_FRAME_INFO* info);

/*
 * The same for modules that send 17-byte reports only: takes 17 bytes at once, no pause between
 * them longer than 20 ms, and drops all of them when they begin with no such report.
 */
TAVU_API int TAVUReceive(int com_port, CAN_FRAME_INFO* info);

/*
 * Collects reports until there are `cnt`, `interval` ms of processor time are used up, or
 * TAVUCancelReceive ends it. At least one attempt is made. Result: records filled, 0 to `cnt`; 0 at
 * once for a `cnt` of 0 or a null pointer. Polls without pause. In waiting read mode neither limit
 * nor cancel ends the wait for the next report.
 */
TAVU_API int TAVUReceiveNonblock(int com_port, NON_BLOCK_INFO* info);

/* Bytes for a DLC code: 0-8 as they are, then 12, 16, 20, 24, 32, 48; 15 and above 64. */
TAVU_API int DecodeDLC_CANFD(int code);

#ifdef __cplusplus
}
#endif

#include "lib_tavu_2_extensions.h"

#endif
