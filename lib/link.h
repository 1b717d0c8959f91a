// lib/link.h - library: the exchange of commands, value codecs, the list of open ports.
// Library-internal.
// Thread: the list changes in connect calls only, see the table in lib/lib_tavu_2.h.
// SPDX-License-Identifier: MIT
#ifndef LIB_LINK_H
#define LIB_LINK_H

#include "lib/command.h"
#include "lib/lib_tavu_2.h"
#include "lib/report_input.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>

namespace tavu {

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

// The open ports form one list in the order of their opening, so that every call finds the
// descriptor and the tables of its port. Its nodes and its head `first` are what is known; these
// names only keep at hand what can be derived from them, and each is set in one place:
//   previous, last   the list's end, behind which the next node goes; as nodes only go in there, it
//                    is also the one created most recently of those that live
//   is_legal         that the lookup finds the node; a node is legal while its port is open, which
//                    is as long as it is in the list. It is copied from the record that enters, as
//                    is the descriptor
//   g_FlexibleVCOM_flag   that TAVUFlexibleVCOM runs, which makes the opens of its candidates
//                    start no pairing of their own
// The pacing send_delay is not in the list: one for each channel of the process, whatever the port,
// it follows from the bit rates of the module started last.

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

extern COM_NODE* first;  // null when no port is open, as are the others then
extern COM_NODE* previous;
extern COM_NODE* last;
extern bool g_FlexibleVCOM_flag;

// Appends a copy of `node` with cleared range filters. `is_first`: the list is empty.
void create_com_list(bool is_first, COM_NODE node);
// The node of an open port, or null. The list keeps it; it lives until the port is closed.
COM_NODE* chk_is_legal_com(int com_port);
// Removes and frees the port's node and closes its eventfd; nothing to do if there is none.
void delete_com_node(int com_port);

// ---- The exchange ----

// Discards and counts what has arrived. The receiver's buffer is emptied by its next call.
void input_discard(COM_NODE& node);

// One exchange: clears `reply`, discards unread input, writes `frame`, waits 150 ms and reads at
// most `reply_len` bytes once. A `reply_len` of 0 or a null `reply` sends only. TAVU_FAILURE: port
// not open, write failed, nothing came. Echo and status are left to the caller.
int cmd_process(int com_port, int frame_len, int reply_len, const unsigned char* frame,
                unsigned char* reply);

// cmd_process, and the reply must echo the command with a status of 0.
int exchange(int com_port, std::span<const unsigned char> frame, std::span<unsigned char> reply);

// exchange with a reply that carries no data.
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

// The inverse of uint_2_uchar.
unsigned int uchar_2_uint(const unsigned char* bytes);

// Data field of a frame on the wire: 8 bytes in a CAN 2.0 frame, and at least that with CAN FD.
inline constexpr int kLeastDataBytes = 8;
int fd_data_bytes(int dlc);

// The module's configuration bytes, one 32-bit word each in the configuration file.
inline constexpr std::size_t kConfigBytes = 23;
using ConfigWords = std::array<std::uint32_t, kConfigBytes>;
void linear_encode(ConfigWords& words);  // word i becomes (i + 1) * word + (i + 1)
void linear_decode(ConfigWords& words);  // word i becomes (word - (i + 1)) / (i + 1)

// What the configuration bytes mean. The mask of an extended filter has further bits set above the
// 29th, as the module wants them.
struct ChannelConfig {
    unsigned char baud;
    unsigned char mode;
    unsigned char flt_type;
    unsigned int flt_id;
    unsigned int flt_mask;
};
struct ModuleConfig {
    std::array<ChannelConfig, TAVU_CHANNEL_CNT> channel;
    unsigned char err_set;
};
ModuleConfig config_decode(std::span<const unsigned char, kConfigBytes> bytes);

// Fills the classic fields of a CFG_INFO or CANFD_CFG_INFO.
template <typename Record>
void config_fill(Record& record, const ModuleConfig& config) {
    for (std::size_t can = 0; can < config.channel.size(); ++can) {
        const ChannelConfig& channel = config.channel[can];
        record.baud[can] = channel.baud;
        record.mode[can] = channel.mode;
        record.flt_type[can] = channel.flt_type;
        record.flt_id[can] = channel.flt_id;
        record.flt_mask[can] = channel.flt_mask;
        if (channel.flt_type == TAVU_EID) {
            record.flt_mask[can] &= TAVU_EID_MAX;
        }
    }
    record.err_set = config.err_set;
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
