// sim/port_table.cpp - simulated module: which device path leads to which pty, and its modem lines.
// Uses POSIX shared mappings. Called from the serial shim: must not depend on the shim.
// Thread: any.
// SPDX-License-Identifier: MIT
#include "sim/port_table.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace sim {

namespace {

static_assert(std::atomic<std::uint32_t>::is_always_lock_free, "the table is shared by processes");

constexpr std::array<const char*, 9> kFamilies{"/dev/ttyCAN", "/dev/ttyUSB", "/dev/ttyAMA",
                                               "/dev/ttyACM", "/dev/rfcomm", "/dev/ircomm",
                                               "/dev/cuau",   "/dev/cuaU",   "/dev/serusb"};

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
    for (const char* family : kFamilies) {
        const std::size_t length = std::strlen(family);
        const std::string_view number(path + std::min(length, std::strlen(path)));
        if (std::strncmp(path, family, length) == 0 && !number.empty() &&
            number.find_first_not_of("0123456789") == std::string_view::npos) {
            return true;
        }
    }
    return false;
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
    port->lines = 0;
    port->framing = 0;
    return port;
}

void release_port(PortSlot& port) {
    port.pty = 0;
    port.served = 0;
}

}  // namespace sim
