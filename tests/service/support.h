// tests/service/support.h - test: what the service tests share.
// May be included by tests/service only.
// SPDX-License-Identifier: MIT
#ifndef TESTS_SERVICE_SUPPORT_H
#define TESTS_SERVICE_SUPPORT_H

#include "service/traffic_queues.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <thread>
#include <vector>

inline constexpr int kPort = 24;        // /dev/ttyACM0, the simulated module's path
inline constexpr int kClosedPort = 25;  // never opened

// Waits until the condition holds; false when it still does not at the time limit.
template <typename Condition>
bool wait_for(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(5)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
}

inline auto thread_count() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

// Takes everything out of a ring.
inline std::vector<UPBS_INFO> taken(bool (*pop)(UPBS_INFO*)) {
    std::vector<UPBS_INFO> records;
    for (UPBS_INFO record; pop(&record);) {
        records.push_back(record);
    }
    return records;
}

inline std::vector<unsigned> ids(const std::vector<UPBS_INFO>& records) {
    std::vector<unsigned> result;
    result.reserve(records.size());
    for (const UPBS_INFO& record : records) {
        result.push_back(record.frame_info.id);
    }
    return result;
}

inline const char* const kTimeText =
    "([01][0-9]|2[0-3]):[0-5][0-9]:[0-5][0-9]:[0-9][0-9][0-9]";  // POSIX regular expression

#endif
