// tests/service/support.h - test: what the service tests share.
// SPDX-License-Identifier: MIT
#ifndef TESTS_SERVICE_SUPPORT_H
#define TESTS_SERVICE_SUPPORT_H

#include "service/traffic_queues.h"

#include <gtest/gtest.h>

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

inline bool threads_become(decltype(thread_count()) count) {
    return wait_for([count] { return thread_count() == count; });
}

using Ids = std::vector<unsigned>;

// Empties a ring, once at least so many records have come; their identifiers.
inline Ids taken(bool (*pop)(UPBS_INFO*), std::size_t at_least = 0) {
    Ids ids;
    EXPECT_TRUE(wait_for([&] {
        for (UPBS_INFO record; pop(&record);) {
            ids.push_back(record.frame_info.id);
        }
        return ids.size() >= at_least;
    }));
    return ids;
}

#endif
