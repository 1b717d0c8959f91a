// sim/port_table.cpp - simulated module: which device path leads to which pty, and its modem lines.
// Uses POSIX shared mappings. Called from the serial shim: must not depend on the shim.
// Thread: any.
// SPDX-License-Identifier: MIT
#include "sim/port_table.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace sim {

namespace {

static_assert(std::atomic<std::uint32_t>::is_always_lock_free, "the table is shared by processes");

// Devices that a program may look behind for a module, numbered from 0.
struct Family {
    std::string_view prefix;
    unsigned int count;
};
constexpr std::array<Family, 9> kFamilies{{{"/dev/ttyCAN", 16},
                                           {"/dev/ttyUSB", 6},
                                           {"/dev/ttyAMA", 2},
                                           {"/dev/ttyACM", 16},
                                           {"/dev/rfcomm", 2},
                                           {"/dev/ircomm", 2},
                                           {"/dev/cuau", 4},
                                           {"/dev/cuaU", 4},
                                           {"/dev/serusb", 16}}};

constinit PortTable own_table{};
constinit std::atomic<PortTable*> current_table{nullptr};  // set once, by whoever comes first

PortTable* map_table(int fd) {
    void* address = mmap(nullptr, sizeof(PortTable), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return address == MAP_FAILED ? nullptr : static_cast<PortTable*>(address);
}

PortTable* open_named_table() {
    const char* path = std::getenv(kTableVariable);
    const int fd = path == nullptr ? -1 : open(path, O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        return nullptr;
    }
    PortTable* table = map_table(fd);
    close(fd);
    return table;
}

// Several threads may come first at once; all of them then use the winner's table.
PortTable& publish(PortTable* table) {
    PortTable* expected = nullptr;
    current_table.compare_exchange_strong(expected, table, std::memory_order_acq_rel);
    return *current_table.load(std::memory_order_acquire);
}

bool name_slot(PortSlot& port, const std::string& device) {
    std::uint32_t expected = PortSlot::kFree;
    if (!port.state.compare_exchange_strong(expected, PortSlot::kBeingNamed)) {
        return false;
    }
    std::memcpy(port.device, device.c_str(), device.size() + 1);
    port.state.store(PortSlot::kNamed, std::memory_order_release);
    return true;
}

// What a path is made of; no family for one that is no candidate.
struct Candidate {
    const Family* family = nullptr;
    unsigned int number = 0;
};

Candidate candidate_of(std::string_view path) {
    for (const Family& family : kFamilies) {
        Candidate candidate{&family};
        const char* end = path.data() + path.size();
        const char* digits = path.data() + std::min(family.prefix.size(), path.size());
        const auto [rest, error] = std::from_chars(digits, end, candidate.number);
        if (path.starts_with(family.prefix) && error == std::errc() && rest == end) {
            return candidate;
        }
    }
    return {};
}

}  // namespace

PortTable& port_table() {
    if (PortTable* table = current_table.load(std::memory_order_acquire)) {
        return *table;
    }
    PortTable* named = open_named_table();
    return publish(named != nullptr ? named : &own_table);
}

std::string share_port_table() {
    const int fd = memfd_create("tavu-sim-ports", MFD_CLOEXEC);
    if (fd < 0 || ftruncate(fd, sizeof(PortTable)) != 0) {
        return {};
    }
    PortTable* table = map_table(fd);
    if (table == nullptr || &publish(table) != table) {
        return {};
    }
    // The descriptor stays open: it is what the path leads to.
    return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd);
}

bool is_candidate_path(const char* path) {
    return candidate_of(path).family != nullptr;
}

bool is_searched_path(const char* path) {
    const auto [family, number] = candidate_of(path);
    return family != nullptr && number < family->count;
}

PortSlot* find_port(const char* device) {
    for (PortSlot& port : port_table().slots) {
        if (port.state.load(std::memory_order_acquire) == PortSlot::kNamed &&
            std::strcmp(port.device, device) == 0) {
            return &port;
        }
    }
    return nullptr;
}

PortSlot* claim_port(const std::string& device) {
    if (!is_candidate_path(device.c_str()) || device.size() >= sizeof(PortSlot::device)) {
        return nullptr;
    }
    PortSlot* port = find_port(device.c_str());
    for (PortSlot& slot : port_table().slots) {
        if (port == nullptr && name_slot(slot, device)) {
            port = &slot;
        }
    }
    if (port == nullptr || port->served.exchange(1) != 0) {
        return nullptr;
    }
    port->denied = 0;
    port->lines = 0;
    port->framing = 0;
    return port;
}

void release_port(PortSlot& port) {
    port.pty = 0;
    port.served = 0;
}

}  // namespace sim
