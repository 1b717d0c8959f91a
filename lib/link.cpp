// lib/link.cpp - library: the exchange of commands, value codecs, the list of open ports.
// Uses lib/rs232.h. Knows nothing of what the commands mean.
// Thread: any; the list changes in connect calls only.
// SPDX-License-Identifier: MIT
#include "lib/link.h"

#include "lib/rs232.h"

#include <unistd.h>

#include <algorithm>
#include <memory>

namespace tavu {

COM_NODE* first = nullptr;
COM_NODE* previous = nullptr;
COM_NODE* last = nullptr;
Loss loss;

namespace {

// The module answers within this time; its replies are read in one piece after it.
constexpr int kReplyWait_us = 150000;

constexpr int kNibbles = 8;

// Node with that number and the one before it (null at the head); both null if there is none.
struct Place {
    COM_NODE* node = nullptr;
    COM_NODE* before = nullptr;
};

Place place_find(int com_port) {
    COM_NODE* before = nullptr;
    for (COM_NODE* node = first; node != nullptr; node = node->next) {
        if (node->com_port == com_port) {
            return {node, before};
        }
        before = node;
    }
    return {};
}

// The only place that sets the names of the list's end.
void end_move(COM_NODE* node) {
    previous = node;
    last = node;
}

}  // namespace

void create_com_list(bool is_first, COM_NODE node) {
    auto created = std::make_unique<COM_NODE>(node);
    created->range_filter = {};
    created->next = nullptr;
    (is_first ? first : previous->next) = created.get();
    end_move(created.release());
}

COM_NODE* chk_is_legal_com(int com_port) {
    COM_NODE* node = place_find(com_port).node;
    return node != nullptr && node->is_legal ? node : nullptr;
}

void delete_com_node(int com_port) {
    const Place place = place_find(com_port);
    const std::unique_ptr<COM_NODE> node(place.node);
    if (node == nullptr) {
        return;
    }
    (place.before == nullptr ? first : place.before->next) = node->next;
    if (previous == node.get()) {
        end_move(place.before);
    }
    if (node->cancel_fd >= 0) {
        close(node->cancel_fd);
    }
}

void input_discard(COM_NODE& node) {
    loss_add(loss.discarded, static_cast<std::uint64_t>(RS232_InputCount(node.fd)));
    RS232_flushRX(node.fd);
    // Released, so that a receiver which sees it reads nothing that was there before.
    std::atomic_ref(node.discards).fetch_add(1, std::memory_order_release);
}

int cmd_process(int com_port, int frame_len, int reply_len, const unsigned char* frame,
                unsigned char* reply) {
    COM_NODE* node = chk_is_legal_com(com_port);
    if (node == nullptr) {
        return TAVU_FAILURE;
    }
    const bool is_answered = reply_len > 0 && reply != nullptr;
    if (is_answered) {
        std::fill_n(reply, reply_len, static_cast<unsigned char>(0));
    }
    input_discard(*node);
    if (RS232_SendBuf(node->fd, frame, frame_len) == RS232_FAILED) {
        return TAVU_FAILURE;
    }
    if (!is_answered) {
        return TAVU_SUCCESS;
    }
    TAVUSleep(kReplyWait_us);
    return RS232_ReadPending(node->fd, reply, reply_len) > 0 ? TAVU_SUCCESS : TAVU_FAILURE;
}

int exchange(int com_port, std::span<const unsigned char> frame, std::span<unsigned char> reply) {
    const int result = cmd_process(com_port, static_cast<int>(frame.size()),
                                   static_cast<int>(reply.size()), frame.data(), reply.data());
    const bool is_accepted = result == TAVU_SUCCESS && reply[0] == frame[0] && reply[1] == 0;
    return is_accepted ? TAVU_SUCCESS : TAVU_FAILURE;
}

int exchange(int com_port, std::span<const unsigned char> frame) {
    Reply<0> reply{};
    return exchange(com_port, frame, reply);
}

unsigned int uchar_2_uint(const unsigned char* bytes) {
    constexpr int kBase = 16;
    unsigned int value = 0;
    for (int i = 0; i < kNibbles; ++i) {
        const unsigned int byte = bytes[i / 2];
        const unsigned int nibble = i % 2 == 0 ? byte / kBase : byte % kBase;
        value += nibble * static_cast<unsigned int>(pow_with_int(kBase, kNibbles - 1 - i));
    }
    return value;
}

int fd_data_bytes(int dlc) {
    return std::max(DecodeDLC_CANFD(dlc), kLeastDataBytes);
}

void linear_encode(ConfigWords& words) {
    std::uint32_t factor = 0;
    for (std::uint32_t& word : words) {
        ++factor;
        word = factor * word + factor;
    }
}

void linear_decode(ConfigWords& words) {
    std::uint32_t factor = 0;
    for (std::uint32_t& word : words) {
        ++factor;
        word = (word - factor) / factor;
    }
}

ModuleConfig config_decode(std::span<const unsigned char, kConfigBytes> bytes) {
    constexpr std::size_t kChannelBytes = 11;
    ModuleConfig config{};
    for (std::size_t can = 0; can < config.channel.size(); ++can) {
        const unsigned char* channel = bytes.data() + can * kChannelBytes;
        config.channel[can] = {.baud = channel[0],
                               .mode = channel[1],
                               .flt_type = channel[2],
                               .flt_id = uchar_2_uint(channel + 3),
                               .flt_mask = uchar_2_uint(channel + 7)};
    }
    config.err_set = bytes.back();
    return config;
}

}  // namespace tavu
