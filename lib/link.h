// lib/link.h - library: command frames, value codecs, the exchange, the list of open ports.
// Library-internal.
// Thread: the list changes in connect calls only, see the table in lib/lib_tavu_2.h.
// SPDX-License-Identifier: MIT
#ifndef LIB_LINK_H
#define LIB_LINK_H

#include "lib/lib_tavu_2.h"
#include "lib/report_input.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>

namespace tavu {

// Command bytes of the module.
enum Command : unsigned char {
    kSetBaudRate = 0x30,
    kSetFilter1 = 0x31,
    kSetFilter2 = 0x32,
    kSetMode = 0x33,
    kSetErrorType = 0x38,
    kSetRunState = 0x61,
    kSetCanFd = 0x4A,
    kSetTiming = 0x4B,
    kGetTiming = 0x4C,
    kSetVcom = 0x4E,
    kSendFrame = 0xE0,
    kSendFdFrame = 0xF0,
};

// Frames without variable content.
using PlainFrame = std::array<unsigned char, 4>;
using FilterFrame = std::array<unsigned char, 13>;
inline constexpr PlainFrame show_ver_cmd = {0x35, 0x35, 0x0D, 0x0A};
inline constexpr PlainFrame reset_cmd = {0x34, 0x34, 0x0D, 0x0A};
inline constexpr PlainFrame bldid_cmd = {0x36, 0x36, 0x0D, 0x0A};
inline constexpr PlainFrame expcfg_cmd = {0x37, 0x37, 0x0D, 0x0A};
inline constexpr PlainFrame getcfg_cmd = {0x37, 0x37, 0x0D, 0x0A};
inline constexpr PlainFrame get_sts_cmd = {0x60, 0x60, 0x0D, 0x0A};
inline constexpr PlainFrame get_bus_cmd = {0x62, 0x62, 0x0D, 0x0A};
inline constexpr PlainFrame getcfg_canfd_cmd = {0x47, 0x47, 0x0D, 0x0A};
inline constexpr PlainFrame get_vcom_cmd = {0x4D, 0x4D, 0x0D, 0x0A};
inline constexpr FilterFrame clr_filt_0_cmd = {0x31, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x31, 0x0D, 0x0A};
inline constexpr FilterFrame clr_filt_1_cmd = {0x32, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x32, 0x0D, 0x0A};

// ---- Losses ----

// Counters of TAVU_LOSS_INFO; written by receivers and exchanges, read by anyone. Relaxed: they
// order nothing.
struct Loss {
    std::atomic<std::uint64_t> header_short;
    std::atomic<std::uint64_t> header_unknown;
    std::atomic<std::uint64_t> body_incomplete;
    std::atomic<std::uint64_t> passed_over;
    std::atomic<std::uint64_t> discarded;
};
extern Loss loss;

inline void loss_add(std::atomic<std::uint64_t>& counter, std::uint64_t count = 1) {
    counter.fetch_add(count, std::memory_order_relaxed);
}

// ---- Open ports ----

// One open port. `range_filter` is shared by the receiving thread and the range-filter calls under
// range_filter_mutex; its `enable` bytes are also read without the lock, so every access outside
// the lock and every write goes through range_enable_load and range_enable_store.
struct COM_NODE {
    bool is_legal = false;
    int com_port = 0;
    int fd = -1;
    int cancel_fd = -1;        // eventfd, readable while a cancel waits to be consumed
    bool cancel_hint = false;  // set after the eventfd, so that a batch tests no descriptor;
                               // written by any thread, read by the receiver, as std::atomic_ref
    std::array<RANGE_FILTER_INFO, TAVU_CHANNEL_CNT> range_filter{};
    std::uint32_t discards = 0;  // times that an exchange discarded input; written by its thread,
                                 // read by the receiver, as std::atomic_ref
    ReportInput input{};         // the receiver's own
    COM_NODE* next = nullptr;
};

extern COM_NODE* first;     // head, null when no port is open
extern COM_NODE* previous;  // tail, behind which the next node goes
extern COM_NODE* last;      // node created most recently of those that live

// Appends a copy of `node` with cleared range filters. `is_first`: the list is empty.
void create_com_list(bool is_first, COM_NODE node);
// The node of an open port, or null. The list keeps it; it lives until the port is closed.
COM_NODE* chk_is_legal_com(int com_port);
// Removes and frees the port's node and closes its eventfd; nothing to do if there is none.
void delete_com_node(int com_port);

// ---- Frames and the exchange ----

// Discards and counts what has arrived. The receiver's buffer is emptied by its next call.
void input_discard(COM_NODE& node);

// Fills the last three of `length` bytes (4 or more): sum of the others modulo 256, CR, LF.
void chk_sum_end_byte(unsigned char* frame, int length);

// A frame of the given command and payload bytes (low 8 bits of each), checksum and end included.
template <typename... Payload>
auto command_frame(Command command, Payload... payload) {
    std::array<unsigned char, sizeof...(Payload) + 4> frame = {
        command, static_cast<unsigned char>(payload)...};
    chk_sum_end_byte(frame.data(), static_cast<int>(frame.size()));
    return frame;
}

// One exchange: clears `reply`, discards unread input, writes `frame`, waits 150 ms and reads at
// most `reply_len` bytes once. A `reply_len` of 0 or a null `reply` sends only. TAVU_FAILURE: port
// not open, write failed, nothing came. Echo and status are left to the caller.
int cmd_process(int com_port, int frame_len, int reply_len, const unsigned char* frame,
                unsigned char* reply);

// cmd_process, and the reply must echo the command with a status of 0.
int exchange(int com_port, std::span<const unsigned char> frame, std::span<unsigned char> reply);

// exchange with a 5-byte reply that carries no data.
int exchange(int com_port, std::span<const unsigned char> frame);

// ---- Value codecs ----

// `base` to the power `exponent`, wrapping at 32 bits; 1 for an exponent of 0 or less.
constexpr int pow_with_int(int base, int exponent) {
    unsigned int power = 1;
    for (int i = 0; i < exponent; ++i) {
        power *= static_cast<unsigned int>(base);
    }
    return static_cast<int>(power);
}

// 32-bit values as 4 bytes, most significant first.
unsigned int uchar_2_uint(const unsigned char* bytes);
void uint_2_uchar(unsigned int value, unsigned char* bytes);

// The module's configuration bytes, one 32-bit word each in the configuration file.
inline constexpr std::size_t kConfigBytes = 23;
using ConfigWords = std::array<std::uint32_t, kConfigBytes>;
void linear_encode(ConfigWords& words);  // word i becomes (i + 1) * word + (i + 1)
void linear_decode(ConfigWords& words);  // word i becomes (word - (i + 1)) / (i + 1)

// Fills the classic fields of a CFG_INFO or CANFD_CFG_INFO from the configuration bytes.
template <typename Record>
void config_decode(std::span<const unsigned char, kConfigBytes> bytes, Record& record) {
    constexpr std::size_t kChannelBytes = 11;
    constexpr unsigned int kExtendedMask = 0x1FFFFFFF;
    for (std::size_t can = 0; can < TAVU_CHANNEL_CNT; ++can) {
        const unsigned char* channel = bytes.data() + can * kChannelBytes;
        record.baud[can] = channel[0];
        record.mode[can] = channel[1];
        record.flt_type[can] = channel[2];
        record.flt_id[can] = uchar_2_uint(channel + 3);
        record.flt_mask[can] = uchar_2_uint(channel + 7);
        if (record.flt_type[can] == TAVU_EID) {
            record.flt_mask[can] &= kExtendedMask;
        }
    }
    record.err_set = bytes[2 * kChannelBytes];
}

// ---- Connection ----

// Opens the device of a port in range and appends its node; null on failure, nothing stays open.
COM_NODE* port_open(int com_port);
// Stops both channels and pairs the virtual ports where the firmware needs it.
void port_settle(int com_port);
// Closes the device and removes the node.
void port_drop(COM_NODE* node);

// Second hexadecimal digit of the firmware version; 0 if it cannot be read (2 exchanges).
int firmware_digit(int com_port);

// Set while a pairing runs, so that the opens it makes start none of their own.
extern bool g_FlexibleVCOM_flag;

// Pacing delay of each channel in microseconds; written by the thread that starts the controller,
// read by the sending thread. Relaxed: each value stands alone.
extern std::array<std::atomic<std::int32_t>, TAVU_CHANNEL_CNT> send_delay;

// Derives send_delay from the module's bit rates; unreadable ones keep the delays.
void fine_tune_send_delay(int com_port);

// ---- Range filter ----

// Guards the range-filter tables of all ports.
extern std::mutex range_filter_mutex;

unsigned char range_enable_load(RANGE_FILTER_INFO& table);
void range_enable_store(RANGE_FILTER_INFO& table, unsigned char enable);

// Result: 1 if the frame (of CAN 1 or CAN 2) is inside one of its channel's ranges; otherwise 0,
// and the record is all zero.
int range_filter_process(COM_NODE* node, CAN_FRAME_INFO* frame);

}  // namespace tavu

#endif
