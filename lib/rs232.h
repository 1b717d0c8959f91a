// lib/rs232.h - library: opens, locks, reads and writes a serial character device.
// Knows paths and descriptors; nothing of port numbers in use, frames or modules.
// Thread: any; the terminal driver keeps reads and writes of one port apart.
// SPDX-License-Identifier: MIT
#ifndef LIB_RS232_H
#define LIB_RS232_H

#include <poll.h>

#include <array>
#include <chrono>
#include <span>

// Device path of every port number, 0 to 67.
extern const std::array<const char*, 68> comports;

enum : int { RS232_OK = 0, RS232_REJECTED = 1, RS232_FAILED = -1 };

// Opens `path` at `baudrate_bps` (one of the 30 standard rates from 50 to 4000000) with `mode`:
// data bits 5 to 8, parity N, E or O in either case, stop bits 1 or 2 ("8N1"). Takes an exclusive
// lock, sets raw mode with reads that do not wait, raises DTR and RTS.
// Result: the descriptor, which the caller closes with RS232_CloseComport; RS232_REJECTED: rate or
// mode text not accepted, nothing was touched; RS232_FAILED: the device could not be opened,
// locked, configured or its modem lines set, and is closed again. As descriptor 1 cannot be told
// from a rejection, callers pass accepted parameters only and take 0 or less for a failure.
int RS232_OpenComport(const char* path, int baudrate_bps, const char* mode);

// One read of at most `size` bytes that never waits. Result: bytes read, 0 if nothing was pending,
// another thread was reading, or the read failed.
int RS232_ReadPending(int fd, unsigned char* buffer, int size);

// The same, but in waiting mode (RS232_SetRecvBlock) it waits for the first byte.
int RS232_PollComport(int fd, unsigned char* buffer, int size);

// Writes `size` bytes. The descriptor does not block: when the port is full the write goes on as
// room comes, for about 100 ms in all. A cancellation of the thread and a second writer of the port
// wait for the end of the write. Result: bytes written, fewer if the room did not come in time or
// the port failed on the way: the rest (256 bytes at most) is kept then and goes out before the
// bytes of the next write, so that a command is late rather than cut. RS232_FAILED: nothing of
// these bytes was written.
int RS232_SendBuf(int fd, const unsigned char* bytes, int size);

// Gives what is not sent yet up to 500 ms to leave and discards the rest; lowers DTR and RTS,
// releases the lock and closes. Never fails towards the caller.
void RS232_CloseComport(int fd);

// Discards input that has arrived and was not read.
void RS232_flushRX(int fd);

// Read mode: a non-zero flag makes reads wait for at least one byte, 0 makes them return at once.
// Changes nothing else in the port's settings. Result: RS232_OK or RS232_FAILED.
int RS232_SetRecvBlock(int fd, int flag);

// poll(2) until one of `fds` reports something (true) or the time is up (false). Resumes with the
// time that is left when a signal interrupts it; an `fd` of -1 is passed over.
bool RS232_PollUntil(std::span<pollfd> fds, std::chrono::steady_clock::time_point deadline);

// Waits until the port is readable or hung up (true), or `timeout` is over (false).
bool RS232_WaitInput(int fd, std::chrono::milliseconds timeout);

// Bytes that have arrived and were not read; 0 also for a port that hung up.
int RS232_InputCount(int fd);

// Diagnostic hook of this layer: source line, function name, message. The product's own discards
// them; it is a weak symbol, so that a test or a diagnostic build can bring another.
void showDebugMsg(int line, const char* function, const char* message);

#endif
