// service/apipart.h - service: records and calls that the user interface sees.
// Thread: every call here is made on the main thread.
// SPDX-License-Identifier: MIT
#ifndef SERVICE_APIPART_H
#define SERVICE_APIPART_H

#include "lib/lib_tavu_2.h"

// Port numbers are those of the library, 0 to TAVU_PORT_CNT - 1. Unless said otherwise a result is
// the library's: 0 = done, 1 = port not open, refused by the module or no answer in time. Every
// exchange with the module takes 150 ms, during which the caller waits.

// ---- Module configuration ------------------------------------------------------------------

// The module's configuration as last read. Main thread only.
struct UPUI_INFO {
    CFG_INFO cfg_info;              // the valid half while device_type is 0
    CANFD_CFG_INFO cfg_info_canfd;  // the valid half while device_type is 1
    unsigned char device_type;      // 1 = the module speaks CAN FD; set by the first procConnect
};

// All zero until the first procConnect; a read-back that fails leaves it as it was.
extern UPUI_INFO upui_info;

// Shows a module configuration in the settings panel. Provided by the user interface; called by
// procConnect, procReset and procCfg, on their thread.
void guiStatusUpdate(UPUI_INFO upui_info);

// ---- Device procedures ---------------------------------------------------------------------

struct CAN_CNNT_INFO {
    char fw[32];      // out: "FW: " and the firmware version
    char api[32];     // out: "Lib: " and the library version
    char mdl[32];     // out: "Model: " and the build identifier
    bool is_discnnt;  // in: true = disconnect, false = connect
};

// Set-up of one channel.
struct CAN_SET_INFO {
    int mode;               // TAVU_NORMAL or TAVU_LISTEN
    int baud;               // nominal bit-rate code, 0 to 12
    bool is_filt;           // true = set filt_info, false = clear the channel's acceptance filter
    FILTER_INFO filt_info;  // used when is_filt is true
    int Dbaud;              // data bit-rate code; only its low 8 bits are sent
    bool fdf;               // CAN FD enabled
};

// Connect: opens the port, stops both channels, reads versions and configuration, shows the latter.
// Result 0 = connected, 1 = the port could not be opened, 2 = the version could not be read (the
// port is closed again). The texts are written with result 0 only.
// Disconnect: ends both workers and the sending of messages and waits for them, stops both channels,
// closes the port; result always 1, texts untouched.
int procConnect(int com_port, CAN_CNNT_INFO* info);

// Starts both channels and then, whatever the result, the messages (message_schedule.h); or ends
// these and the receive worker and stops both channels. A transmit worker is left alone either way.
// Result of the start or stop command.
int procInitial(int com_port, bool to_start);

// Resets the CAN controller; when that succeeded, reads the configuration back and shows it.
int procReset(int com_port);

// Chooses the error reports that the module sends; type is TAVU_DIS_ALL, TAVU_EE_ERR, TAVU_BUS_ERR
// or TAVU_EN_ALL.
int procError(int com_port, int type);

// Applies the set-up of both channels; info points to two records, CAN 1 first. Every step is taken
// even when an earlier one failed. Result: number of failures among mode, bit rate and the two
// filters. Reads the configuration back without showing it.
int procCanSet(int com_port, CAN_SET_INFO* info);

// Steps of procCanSet, as bits.
enum {
    CAN_SET_FD = 1,
    CAN_SET_MODE = 2,
    CAN_SET_BAUD = 4,
    CAN_SET_FILTER_1 = 8,
    CAN_SET_FILTER_2 = 16
};

// Which steps failed when procCanSet last ran; that of CAN FD, which its result leaves out, too.
int procCanSetFailed();

// Exports the module's configuration to a file, or imports it from one; after an import that
// succeeded the configuration is read back and shown. Result of the export or import.
int procCfg(int com_port, char* file_name, bool is_imp);

// ---- Frame traffic -------------------------------------------------------------------------

// A burst of cnt x times frames.
struct CAN_SEND_INFO {
    int cnt;         // frames in one pass; 0 counts as 1, below 0 nothing is sent
    int itvl;        // wait after each frame, microseconds; 0 = none
    int times;       // passes; 0 counts as 1, below 0 nothing is sent
    bool id_inc;     // add 1 to the identifier after each frame of a pass
    bool is_cancel;  // true = only stop the running burst
    // CAN_port, id_type, rtr, dlc, brs, fdf, id and data are used; fdf non-zero selects CAN FD.
    // The identifier is cut to 11 or 29 bits before the first frame; increments are not.
    CAN_FRAME_INFO can_frame_info;
};

struct CAN_RECV_INFO {
    int cnt;       // batches: most reports in one, 1 to 99999 (values beyond are brought in range)
    int time_out;  // batches: time limit of one, ms of processor time; below 0 counts as 0
    bool is_normal;  // true = continuous reception, false = batches
    bool is_cancel;  // true = only stop the running reception
};

// Ends a running burst, waits for its worker, and starts a new one unless is_cancel is set. Frames
// go to the transmit ring whether or not the module took them. If no thread can be started, nothing
// is sent. Waits for the old worker until its frame command, if it is writing one, is over.
void procSend(int com_port, CAN_SEND_INFO info);

// Ends running reception, waits for its worker, drops reports not yet shown, and starts a new
// worker unless is_cancel is set. Data frames go to the receive ring, error and status reports of
// continuous reception to the mailbox (traffic_queues.h). If the port is not open or no thread can
// be started, nothing is received. Waits for the old worker at most as long as one report's arrival
// or one wait (20 ms).
void procRecv(int com_port, CAN_RECV_INFO info);

// ---- DLC coding ----------------------------------------------------------------------------

// DLC code of the shortest CAN FD frame that holds the given number of bytes; above 48: 15.
unsigned char CANFD_EncodeDLC(unsigned char u8NumberOfBytes);

// Number of bytes of a DLC code; above 15 it counts as 15, which is 64 bytes.
unsigned char CANFD_DecodeDLC(unsigned char u8Dlc);

#endif
