// cli/reception.cpp - command: receives on a thread of its own; losses.
// Uses lib/lib_tavu_2.h, trace/record.h.
// Thread: main and the one that receives, as the header says.
// SPDX-License-Identifier: MIT
#include "cli/reception.h"

#include "cli/interrupt.h"

#include "lib/lib_tavu_2.h"

#include <array>
#include <chrono>

namespace cli {

namespace {

constexpr std::size_t kMostWaiting = 65'536;  // records of about 200 bytes: a second and more
constexpr int kWait_ms = 100;                 // an interrupt is seen after it at the latest

constexpr std::chrono::seconds kQuiet{1};  // between two messages of losses
constexpr std::array<const char*, 7> kLosses = {
    "frames, as the output was too slow", "damaged reports",
    "reports that were not understood",   "bytes between reports",
    "bytes that gave way to a command",   "reports of no valid frame",
    "EEPROM errors of the module"};

}  // namespace

Reception::Reception(int com_port) : com_port_(com_port) {
    arrived_.reserve(kMostWaiting);
    taken_.reserve(kMostWaiting);
    thread_ = std::thread([this] { receive(); });
}

Reception::~Reception() {
    end();
}

void Reception::end() {
    if (thread_.joinable()) {
        is_ended_ = true;
        TAVUCancelReceive(com_port_);
        thread_.join();
        TAVUWaitReceive(com_port_, 0);  // takes back a cancel that came when nothing waited
    }
}

void Reception::receive() {
    bool is_gone = false;
    while (!is_ended_ && !is_gone) {
        CAN_FRAME_INFO report{};
        if (TAVUReceive_CANFD(com_port_, &report) == TAVU_REPORT) {
            add(report);
        } else {
            is_gone = TAVUWaitReceive(com_port_, kWait_ms) == TAVU_HUNG_UP;
        }
    }
    const std::lock_guard lock(mutex_);
    is_gone_ = is_gone;
    changed_.notify_one();
}

void Reception::add(const CAN_FRAME_INFO& report) {
    trace::Record record{.time_us = trace::time_now_us(), .frame = report};
    std::array<CAN_FRAME_INFO, TAVU_CHANNEL_CNT> errors{};
    const bool is_data = report.msg_type == TAVU_DATA_TYPE;
    if (is_data && !trace::frame_is_valid(report)) {
        ++invalid_;
        return;
    }
    eeprom_errors_ += report.msg_type == TAVU_ROMERR_TYPE ? 1 : 0;
    const int count = is_data ? 1 : trace::error_frames(report, &errors);
    const std::lock_guard lock(mutex_);
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
        if (!is_data) {
            record.frame = errors.at(i);
        }
        if (arrived_.size() < kMostWaiting) {
            arrived_.push_back(record);
        } else {
            ++overrun_;
        }
    }
    if (arrived_.size() == static_cast<std::size_t>(count)) {
        changed_.notify_one();
    }
}

std::span<const trace::Record> Reception::take(int timeout_ms) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    taken_.clear();
    std::unique_lock lock(mutex_);
    // A signal handler cannot wake this wait, so it is a chain of short ones.
    while (arrived_.empty() && !is_gone_ && !is_interrupted() &&
           std::chrono::steady_clock::now() < end) {
        changed_.wait_until(lock, std::min(end, std::chrono::steady_clock::now() +
                                                    std::chrono::milliseconds(kWait_ms)));
    }
    taken_.swap(arrived_);
    return taken_;
}

bool Reception::is_over() {
    const std::lock_guard lock(mutex_);
    return is_gone_ && arrived_.empty();
}

void LossWatch::look(const Reception& reception) {
    TAVU_LOSS_INFO line{};
    TAVUGetLoss(&line);
    const std::array<std::uint64_t, 7> present = {
        reception.overrun(),      line.header_short + line.body_incomplete,
        line.header_unknown,      line.passed_over,
        line.discarded,           reception.invalid(),
        reception.eeprom_errors()};
    std::string text;
    for (std::size_t i = 0; i < present.size(); ++i) {
        counts_.at(i) = kept_.at(i) + present.at(i);
        if (counts_.at(i) > 0) {
            text +=
                (text.empty() ? "" : ", ") + std::to_string(counts_.at(i)) + ' ' + kLosses.at(i);
        }
    }
    const auto now = std::chrono::steady_clock::now();
    text_ = text;
    if (text != told_ && now >= quiet_until_) {
        told_ = text;
        quiet_until_ = now + kQuiet;
        complain("lost so far: %s", text.c_str());
    }
}

std::string LossWatch::summary() const {
    return text_.empty() ? "nothing lost" : "lost: " + text_;
}

}  // namespace cli
