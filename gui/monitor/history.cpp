// gui/monitor/history.cpp - user interface: frames packed in blocks, found by their numbers.
// Uses gui/monitor/history.h.
// Thread: any, one at a time for each history.
// SPDX-License-Identifier: MIT
#include "gui/monitor/history.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <new>

namespace {

// What stands before the data of every frame.
struct Packed {
    std::int64_t time_us;
    std::uint32_t id;
    std::uint16_t flags;
};
constexpr std::size_t kPackedBytes = 14;  // without the padding behind the flags

// Bits of Packed::flags: these, the dlc from bit 8 on, the kind of report from bit 12 on.
enum : unsigned int {
    kChannel2 = 1U << 0,
    kSent = 1U << 1,
    kExtended = 1U << 2,
    kRemote = 1U << 3,
    kFd = 1U << 4,
    kBrs = 1U << 5,
    kEsi = 1U << 6,
    kStamped = 1U << 7,  // a stamp stands between this and the data
};
constexpr unsigned int kDlcShift = 8;
constexpr unsigned int kTypeShift = 12;
constexpr unsigned int kFourBits = 0xF;

// Where each frame of a block begins, counted from the end of this table.
using Offsets = std::array<std::uint16_t, kBlockFrames>;
constexpr std::size_t kFrameMost = kPackedBytes + sizeof(TIME_ST_T) + trace::kFdBytes;
static_assert(kBlockFrames * kFrameMost <= UINT16_MAX);

struct FreeMemory {
    void operator()(unsigned char* memory) const { std::free(memory); }
};
struct Block {
    std::unique_ptr<unsigned char, FreeMemory> memory;  // Offsets and the frames
    std::uint32_t bytes = 0;
};
constexpr std::uint64_t kBlockOverhead = sizeof(Block) + 16;  // in the list, and of the allocator

constexpr int kTidyBlocks = 1000;  // a millisecond or two

}  // namespace

struct History {
    void* (*allocate)(std::size_t bytes) = nullptr;
    std::deque<Block> blocks;   // full ones, oldest first
    std::deque<Block> dropped;  // to be given back
    std::uint64_t begin = 0;    // number of the first frame of the first block
    std::uint64_t limit = kHistoryUsual;
    std::uint64_t beside = 0;
    std::uint64_t bytes = 0;  // of all blocks
    // The block that is being filled; its frames follow those of the last full one.
    std::size_t newest_count = 0;
    std::size_t newest_bytes = 0;
    Offsets newest_offsets{};
    std::array<unsigned char, kBlockFrames * kFrameMost> newest{};
};

namespace {

void* allocate_block(std::size_t bytes) {
    return std::malloc(bytes);
}

unsigned int flag_if(bool is_set, unsigned int flag) {
    return is_set ? flag : 0;
}

unsigned int flags_of(const trace::Record& record) {
    const CAN_FRAME_INFO& frame = record.frame;
    const bool has_stamp = frame.timestamp.second != 0 || frame.timestamp.micro_second != 0;
    return flag_if(frame.CAN_port != TAVU_CAN_1, kChannel2) | flag_if(record.is_sent, kSent) |
           flag_if(frame.id_type != TAVU_SID, kExtended) | flag_if(frame.rtr != 0, kRemote) |
           flag_if(frame.fdf != 0, kFd) | flag_if(frame.brs != 0, kBrs) |
           flag_if(frame.esi != 0, kEsi) | flag_if(has_stamp, kStamped) |
           (static_cast<unsigned int>(frame.dlc) & kFourBits) << kDlcShift |
           (static_cast<unsigned int>(frame.msg_type) & kFourBits) << kTypeShift;
}

// Packs a frame; its length.
std::size_t pack(const trace::Record& record, unsigned char* bytes) {
    const unsigned int flags = flags_of(record);
    const Packed packed{record.time_us, record.frame.id, static_cast<std::uint16_t>(flags)};
    unsigned char* at = bytes + kPackedBytes;
    std::memcpy(bytes, &packed, kPackedBytes);
    if ((flags & kStamped) != 0) {
        std::memcpy(at, &record.frame.timestamp, sizeof(TIME_ST_T));
        at += sizeof(TIME_ST_T);
    }
    const auto length = static_cast<std::size_t>(trace::payload_bytes(record.frame));
    std::memcpy(at, record.frame.data, length);
    return static_cast<std::size_t>(at - bytes) + length;
}

void unpack(const unsigned char* bytes, trace::Record* record) {
    Packed packed{};
    std::memcpy(&packed, bytes, kPackedBytes);
    bytes += kPackedBytes;
    const auto is_set = [&packed](unsigned int flag) { return (packed.flags & flag) != 0; };
    *record = {.time_us = packed.time_us, .is_sent = is_set(kSent)};
    CAN_FRAME_INFO& frame = record->frame;
    frame.CAN_port = is_set(kChannel2) ? TAVU_CAN_2 : TAVU_CAN_1;
    frame.id_type = is_set(kExtended) ? TAVU_EID : TAVU_SID;
    frame.rtr = is_set(kRemote) ? TAVU_EN_RTR : TAVU_DIS_RTR;
    frame.dlc = static_cast<int>(packed.flags >> kDlcShift & kFourBits);
    frame.msg_type = static_cast<int>(packed.flags >> kTypeShift & kFourBits);
    frame.brs = is_set(kBrs) ? TAVU_BRS_ON : TAVU_BRS_OFF;
    frame.esi = is_set(kEsi) ? 1 : 0;
    frame.fdf = is_set(kFd) ? TAVU_FDF_ON : TAVU_FDF_OFF;
    frame.id = packed.id;
    if (is_set(kStamped)) {
        std::memcpy(&frame.timestamp, bytes, sizeof(TIME_ST_T));
        bytes += sizeof(TIME_ST_T);
    }
    std::memcpy(frame.data, bytes, static_cast<std::size_t>(trace::payload_bytes(frame)));
}

void forget_block(History* history) {
    history->bytes -= history->blocks.front().bytes + kBlockOverhead;
    history->begin += kBlockFrames;
    history->blocks.pop_front();
}

// Leaves the memory of the oldest block to history_tidy.
void drop_block(History* history) {
    try {
        history->dropped.push_back(std::move(history->blocks.front()));
    } catch (const std::bad_alloc&) {
        // Given back at once then.
    }
    forget_block(history);
}

bool is_full(const History* history) {
    return !history->blocks.empty() && history->bytes + history->beside > history->limit;
}

// A block of its own size for the frames of the newest one; false: no memory.
bool keep_newest(History* history) {
    const std::size_t bytes = sizeof(Offsets) + history->newest_bytes;
    Block block;
    block.memory.reset(static_cast<unsigned char*>(history->allocate(bytes)));
    block.bytes = static_cast<std::uint32_t>(bytes);
    if (block.memory == nullptr) {
        return false;
    }
    std::memcpy(block.memory.get(), history->newest_offsets.data(), sizeof(Offsets));
    std::memcpy(block.memory.get() + sizeof(Offsets), history->newest.data(),
                history->newest_bytes);
    try {
        history->blocks.push_back(std::move(block));
    } catch (const std::bad_alloc&) {
        return false;
    }
    history->bytes += bytes + kBlockOverhead;
    return true;
}

void close_newest(History* history) {
    bool is_kept = keep_newest(history);
    while (!is_kept && !history->blocks.empty()) {
        forget_block(history);
        is_kept = keep_newest(history);
    }
    if (!is_kept) {
        history->begin += kBlockFrames;
    }
    history->newest_count = 0;
    history->newest_bytes = 0;
    while (is_full(history)) {
        forget_block(history);
    }
}

}  // namespace

void HistoryFreer::operator()(History* history) const {
    delete history;
}

HistoryPointer history_make(void* (*allocate)(std::size_t bytes)) {
    HistoryPointer history;
    try {
        history.reset(new History);
        history->allocate = allocate;
    } catch (const std::bad_alloc&) {
        history.reset();
    }
    return history;
}

HistoryPointer history_make() {
    return history_make(allocate_block);
}

void history_add(History* history, const trace::Record& record) {
    history->newest_offsets[history->newest_count++] =
        static_cast<std::uint16_t>(history->newest_bytes);
    history->newest_bytes += pack(record, history->newest.data() + history->newest_bytes);
    if (history->newest_count == kBlockFrames) {
        close_newest(history);
    }
}

std::uint64_t history_begin(const History* history) {
    return history->begin;
}

std::uint64_t history_end(const History* history) {
    return history->begin + history->blocks.size() * kBlockFrames + history->newest_count;
}

bool history_get(const History* history, std::uint64_t number, trace::Record* record) {
    if (number < history->begin || number >= history_end(history)) {
        return false;
    }
    const std::uint64_t block = (number - history->begin) / kBlockFrames;
    const std::uint64_t frame = number % kBlockFrames;
    if (block == history->blocks.size()) {
        unpack(history->newest.data() + history->newest_offsets[frame], record);
        return true;
    }
    const unsigned char* memory = history->blocks[block].memory.get();
    std::uint16_t offset = 0;
    std::memcpy(&offset, memory + frame * sizeof offset, sizeof offset);
    unpack(memory + sizeof(Offsets) + offset, record);
    return true;
}

void history_set_limit(History* history, std::uint64_t bytes) {
    history->limit = std::clamp(bytes, kHistoryLeast, kHistoryMost);
    while (is_full(history)) {
        drop_block(history);
    }
}

std::uint64_t history_limit(const History* history) {
    return history->limit;
}

void history_set_beside(History* history, std::uint64_t bytes) {
    history->beside = bytes;
}

std::uint64_t history_bytes(const History* history) {
    return history->bytes + sizeof(History);
}

void history_clear(History* history) {
    while (!history->blocks.empty()) {
        drop_block(history);
    }
    history->begin = 0;
    history->newest_count = 0;
    history->newest_bytes = 0;
}

bool history_tidy(History* history) {
    for (int i = 0; i < kTidyBlocks && !history->dropped.empty(); ++i) {
        history->dropped.pop_front();
    }
    return history->dropped.empty();
}
