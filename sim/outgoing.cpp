// sim/outgoing.cpp - simulated module: what waits to be written to the host, shaped by the fault.
// Uses sim/bus.h for the clock's types.
// Thread: one at a time.
// SPDX-License-Identifier: MIT
#include "sim/outgoing.h"

#include <algorithm>
#include <array>

namespace sim {

namespace {

constexpr std::size_t kBlockBytes = 65'536;
constexpr std::array<std::uint8_t, 3> kGarbage{0x55, 0xAA, 0x5A};
constexpr unsigned kLongestPiece = 7;

}  // namespace

void Outgoing::add_reply(ByteView reply, Instant now) {
    if (fault_ == Fault::slow) {
        late_.push_back({now + kSlowReply, Bytes(reply.begin(), reply.end())});
    } else {
        append(reply);
    }
}

void Outgoing::add_report(ByteView report) {
    if (fault_ == Fault::garbage && strikes()) {
        ++garbage_count_;
        append(kGarbage);
    }
    if (fault_ == Fault::truncating && strikes()) {
        ++truncated_count_;
        append(report.first(report.size() / 2));
        blocks_.back().quiet_after = kTruncatedQuiet;
        return;
    }
    append(report);
}

void Outgoing::add_raw(ByteView bytes) {
    append(bytes);
}

void Outgoing::clear() {
    blocks_.clear();
    late_.clear();
    waiting_ = 0;
}

bool Outgoing::strikes() {
    if (--reports_until_strike_ > 0) {
        return false;
    }
    reports_until_strike_ = kFaultyReport;
    return true;
}

void Outgoing::append(ByteView bytes) {
    if (bytes.empty()) {
        return;
    }
    const bool starts_block = blocks_.empty() || blocks_.back().quiet_after.count() > 0 ||
                              blocks_.back().bytes.size() >= kBlockBytes;
    Block& block = starts_block ? blocks_.emplace_back() : blocks_.back();
    block.bytes.insert(block.bytes.end(), bytes.begin(), bytes.end());
    waiting_ += bytes.size();
}

ByteView Outgoing::ready(Instant now) {
    while (!late_.empty() && late_.front().due <= now) {
        append(late_.front().bytes);
        late_.pop_front();
    }
    if (blocks_.empty() || silenced(now)) {
        return {};
    }
    const ByteView bytes = ByteView(blocks_.front().bytes).subspan(blocks_.front().start);
    if (fault_ == Fault::dribbling) {
        return bytes.first(std::min<std::size_t>(bytes.size(), 1 + pieces_() % kLongestPiece));
    }
    return bytes;
}

void Outgoing::written(std::size_t count, Instant now) {
    if (count == 0) {
        return;
    }
    Block& block = blocks_.front();
    block.start += count;
    waiting_ -= count;
    if (fault_ == Fault::dribbling) {
        quiet_until_ = now + kDribbleGap;
    }
    if (block.start == block.bytes.size()) {
        quiet_until_ = std::max(quiet_until_, now + block.quiet_after);
        blocks_.pop_front();
    }
}

std::optional<Instant> Outgoing::next_event() const {
    std::optional<Instant> next;
    if (!blocks_.empty()) {
        next = quiet_until_;
    }
    if (!late_.empty()) {
        next = next ? std::min(*next, late_.front().due) : late_.front().due;
    }
    return next;
}

}  // namespace sim
