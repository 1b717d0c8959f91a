// sim/connector.cpp - simulated module: where it is plugged in, behind a device path or on a device.
// Uses sim/link.h; registers in sim/port_table.h.
// Thread: the station's, or under its lock; lines() from any thread.
// SPDX-License-Identifier: MIT
#include "sim/connector.h"

#include <sys/ioctl.h>

#include <chrono>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace sim {

namespace {

constexpr std::chrono::milliseconds kRetryPeriod{100};  // while a device is not there

PortSlot& claim_or_throw(const std::string& device) {
    PortSlot* port = claim_port(device);
    if (port == nullptr) {
        throw std::runtime_error(device + " is no path of a module or is taken");
    }
    return *port;
}

}  // namespace

Registration::Registration(const std::string& device) : port_(claim_or_throw(device)) {}

Connector::Connector(const std::string& device, std::string serial) : serial_(std::move(serial)) {
    if (serial_.empty()) {
        registration_.emplace(device);
    }
    open();
}

void Connector::open() {
    link_ = serial_.empty() ? open_pty() : open_device(serial_);
    if (registration_) {
        registration_->port().pty = link_->pty();
    }
}

void Connector::unplug() {
    if (registration_) {
        registration_->port().pty = 0;
        registration_->port().lines = 0;
    }
    link_.reset();
    next_retry_.reset();
}

void Connector::plug() {
    if (link_) {
        return;
    }
    if (serial_.empty()) {
        open();
    } else {
        next_retry_ = Clock::now();
    }
}

void Connector::lose() {
    unplug();
    next_retry_ = Clock::now() + kRetryPeriod;
}

void Connector::retry() {
    if (!next_retry_ || Clock::now() < *next_retry_) {
        return;
    }
    try {
        open();
        next_retry_.reset();
    } catch (const std::system_error&) {
        next_retry_ = Clock::now() + kRetryPeriod;
    }
}

ModemLines Connector::lines() const {
    const std::uint32_t lines = registration_ ? registration_->port().lines.load() : 0;
    return {(lines & TIOCM_DTR) != 0, (lines & TIOCM_RTS) != 0};
}

void Connector::set_denied(bool denied) {
    if (registration_) {
        registration_->port().denied = denied ? 1 : 0;
    }
}

}  // namespace sim
