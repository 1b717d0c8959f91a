// sim/connector.h - simulated module: where it is plugged in, behind a device path or on a device.
// Only sim/.
// Thread: the station's, or under its lock; lines() from any thread.
// SPDX-License-Identifier: MIT
#ifndef SIM_CONNECTOR_H
#define SIM_CONNECTOR_H

#include "sim/bus.h"
#include "sim/link.h"
#include "sim/port_table.h"

#include <memory>
#include <optional>
#include <string>

namespace sim {

// Modem lines as the host last set them; needs a pty and the serial shim, low without them.
struct ModemLines {
    bool dtr = false;
    bool rts = false;
};

// A registered device path, given back when it goes.
class Registration {
  public:
    // Throws std::runtime_error when no module may be attached to the path or it is taken.
    explicit Registration(const std::string& device);
    ~Registration() { release_port(port_); }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
    [[nodiscard]] PortSlot& port() const { return port_; }

  private:
    PortSlot& port_;
};

class Connector {
  public:
    // Plugged in: with a new pty behind the path `device` or, if `serial` is not empty, on that
    // serial device. Throws like Registration, open_pty and open_device.
    Connector(const std::string& device, std::string serial);
    ~Connector() { unplug(); }
    Connector(const Connector&) = delete;
    Connector& operator=(const Connector&) = delete;

    void unplug();
    // A new pty at once, or the serial device by retry() as soon as it can be opened.
    void plug();
    // The serial device has hung up: it is opened again once it is back.
    void lose();
    // Opens the serial device if it is time for that; one that is not there yet is no error.
    void retry();
    // When retry() has something to do; none while plugged in or unplugged on purpose.
    [[nodiscard]] std::optional<Instant> next_retry() const { return next_retry_; }

    // The module's end, none while unplugged.
    [[nodiscard]] const Link* link() const { return link_.get(); }
    [[nodiscard]] ModemLines lines() const;
    // Whether programs may open the device path; a serial device is not ours to lock up.
    void set_denied(bool denied);

  private:
    void open();

    const std::string serial_;
    std::optional<Registration> registration_;  // none for a serial device
    std::unique_ptr<Link> link_;
    std::optional<Instant> next_retry_;
};

}  // namespace sim

#endif
