// tests/service/support.h - test: what the service tests share.
// SPDX-License-Identifier: MIT
#ifndef TESTS_SERVICE_SUPPORT_H
#define TESTS_SERVICE_SUPPORT_H

#include "service/apipart.h"
#include "service/traffic_queues.h"

#include "sim/station.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <thread>

// A record names only the fields that matter to its test; the others are zero.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

inline constexpr int kPort = 24;        // /dev/ttyACM0, the simulated module's path
inline constexpr int kClosedPort = 25;  // never opened

// Waits until the condition holds; false when it still does not at the time limit.
template <typename Condition>
bool wait_for(Condition condition, std::chrono::milliseconds limit = 10s) {
    const auto end = Clock::now() + limit;
    bool holds = condition();
    for (; !holds && Clock::now() < end; holds = condition()) {
        std::this_thread::sleep_for(200us);
    }
    return holds;
}

inline auto thread_count() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

// A module on an open port; no worker before and after a test.
struct Service : testing::Test {
    Service() {
        EXPECT_EQ(TAVUOpenSocketCAN(kPort, nullptr), TAVU_SUCCESS);
        traffic_loss_reset();
        queues_reset();
        batch_shown();
    }
    ~Service() override {
        stop();
        EXPECT_TRUE(workers_become(0));
        TAVUCloseDevice(kPort);
    }
    static void stop() {
        procSend(kPort, {.is_cancel = true});
        procRecv(kPort, {.is_cancel = true});
    }
    // A worker counts until shortly after its join.
    bool workers_become(int count) const {
        return wait_for([&] { return thread_count() == threads_without + count; });
    }
    // What a disconnect sends last, with no frame between; the module may read it late.
    bool ends_with_two_stops() const {
        const sim::Bytes stop_command{0x61, 0, 0, 0x61, '\r', '\n'};
        return wait_for([&] {
            const auto sent = station.commands();
            return sent.size() >= 2 && sent.rbegin()[0] == stop_command &&
                   sent.rbegin()[1] == stop_command;
        });
    }

    sim::Station station;
    const decltype(thread_count()) threads_without = thread_count();
    UPBS_INFO record{};
};

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
