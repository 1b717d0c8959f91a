// trace/capture.cpp - trace: capture files, written.
// Uses trace/capture.h, trace/text.h, libpcap. Knows of the file's end: it is always that of a
// record.
// Thread: any, one at a time for each capture; capture_sync beside it.
// SPDX-License-Identifier: MIT
#include "trace/capture.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <new>
#include <pcap/pcap.h>
#include <stdio.h>
#include <string.h>

namespace trace {
namespace {

constexpr int kMicrosInSecond = 1000000;

struct PcapCloser {
    void operator()(pcap_t* pcap) const { pcap_close(pcap); }
    void operator()(pcap_dumper_t* dumper) const { pcap_dump_close(dumper); }
};

// Records on their way to the file: whole ones, and where each ends.
struct Batch {
    std::array<char, 65536> text;
    std::size_t length = 0;
    std::array<std::size_t, 4096> ends;
    std::size_t count = 0;

    [[nodiscard]] bool is_full() const {
        return text.size() - length < kTextMost || count == ends.size();
    }
};

}  // namespace

struct Capture {
    CaptureSettings settings;
    CaptureState state;
    int fd = -1;
    bool is_torn = false;  // the file ends in a part of a record that could not be cut off
    Batch batch;
    // What libpcap writes lands in the batch.
    std::unique_ptr<pcap_t, PcapCloser> pcap;
    std::unique_ptr<pcap_dumper_t, PcapCloser> dumper;
};

namespace {

// ---- The file ----

// Writes what it can; how many bytes. Fewer than all: errno tells why.
std::size_t write_bytes(int fd, std::span<const char> bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = write(fd, bytes.data() + done, bytes.size() - done);
        if (written > 0) {
            done += static_cast<std::size_t>(written);
        } else if (written == 0) {
            errno = ENOSPC;
            break;
        } else if (errno != EINTR) {
            break;
        }
    }
    return done;
}

// Empties the batch into the file; of one that does not fit, the whole records that do.
int batch_write(Capture* capture) {
    Batch& batch = capture->batch;
    CaptureState& state = capture->state;
    std::size_t done = 0;
    if (!capture->is_torn) {
        done = write_bytes(capture->fd, {batch.text.data(), batch.length});
    }
    const bool is_whole = done == batch.length;
    if (!is_whole && !capture->is_torn) {
        state.error = errno;
    }
    const auto* const ends = batch.ends.begin();
    const auto* const behind = std::upper_bound(ends, ends + batch.count, done);
    const std::size_t kept = behind == ends ? 0 : behind[-1];
    state.records += static_cast<std::uint64_t>(behind - ends);
    state.lost += batch.count - static_cast<std::uint64_t>(behind - ends);
    state.bytes += kept;
    if (done > kept) {
        capture->is_torn = ftruncate(capture->fd, static_cast<off_t>(state.bytes)) != 0;
    }
    batch.length = 0;
    batch.count = 0;
    return is_whole ? TAVU_SUCCESS : TAVU_FAILURE;
}

// ---- pcap ----

ssize_t batch_take(void* cookie, const char* bytes, size_t count) {
    Batch& batch = static_cast<Capture*>(cookie)->batch;
    if (batch.text.size() - batch.length < count) {
        return 0;
    }
    memcpy(batch.text.data() + batch.length, bytes, count);
    batch.length += count;
    return static_cast<ssize_t>(count);
}

// Leaves the file's header in the batch.
bool pcap_begin(Capture* capture) {
    constexpr int kLongest = 72;
    FILE* file = fopencookie(capture, "w", {nullptr, batch_take, nullptr, nullptr});
    if (file == nullptr) {
        return false;
    }
    setvbuf(file, nullptr, _IONBF, 0);
    capture->pcap.reset(pcap_open_dead(DLT_CAN_SOCKETCAN, kLongest));
    if (capture->pcap != nullptr) {
        capture->dumper.reset(pcap_dump_fopen(capture->pcap.get(), file));
    }
    if (capture->dumper == nullptr) {
        fclose(file);
        errno = ENOMEM;
        return false;
    }
    capture->batch.ends[capture->batch.count++] = capture->batch.length;
    return true;
}

// The frame as the kernel's CAN sockets hand it out, but for the identifier, which is big-endian.
std::size_t socketcan_frame(const CAN_FRAME_INFO& frame, std::array<unsigned char, 72>* packet) {
    constexpr std::size_t kHeader = 8;
    constexpr unsigned int kExtended = 0x80000000;
    constexpr unsigned int kRemote = 0x40000000;
    constexpr int kFd = 4;  // beside 1, bit-rate switch, and 2, ESI
    unsigned int id = frame.id;
    const bool is_data = frame_is_data(frame);
    if (!is_data) {
        id |= kErrorFlag;
    } else if (frame.id_type == TAVU_EID) {
        id |= kExtended;
    }
    *packet = {};
    const bool is_fd = is_data && frame.fdf == TAVU_FDF_ON;
    int length = payload_bytes(frame);
    std::copy_n(frame.data, length, packet->begin() + kHeader);
    if (is_data && frame.rtr == TAVU_EN_RTR) {
        id |= kRemote;
        length = std::min(frame.dlc, kClassicBytes);
    }
    for (std::size_t i = 0; i < 4; ++i) {
        (*packet)[i] = static_cast<unsigned char>(id >> (24 - 8 * i));
    }
    (*packet)[4] = static_cast<unsigned char>(length);
    if (is_fd) {
        (*packet)[5] = static_cast<unsigned char>(kFd | frame.esi << 1 | frame.brs);
    } else if (frame.dlc > kClassicBytes) {
        (*packet)[7] = static_cast<unsigned char>(frame.dlc);
    }
    return kHeader + (is_fd ? kFdBytes : kClassicBytes);
}

bool pcap_add(Capture* capture, const Record& record) {
    if (!frame_is_valid(record.frame) || record.time_us < 0 ||
        record.time_us / kMicrosInSecond > std::numeric_limits<std::uint32_t>::max()) {
        return false;
    }
    std::array<unsigned char, 72> packet;
    pcap_pkthdr header{};
    header.caplen = static_cast<bpf_u_int32>(socketcan_frame(record.frame, &packet));
    header.len = header.caplen;
    header.ts = {.tv_sec = record.time_us / kMicrosInSecond,
                 .tv_usec = record.time_us % kMicrosInSecond};
    pcap_dump(reinterpret_cast<u_char*>(capture->dumper.get()), &header, packet.data());
    return true;
}

// ---- Either format ----

bool log_add(Capture* capture, const Record& record) {
    Batch& batch = capture->batch;
    const std::span<char> room = std::span(batch.text).subspan(batch.length);
    const CaptureSettings& settings = capture->settings;
    const int length = log_line_write(record, settings.interfaces, settings.log, room);
    if (length < 0) {
        return false;
    }
    room[static_cast<std::size_t>(length)] = '\n';
    batch.length += static_cast<std::size_t>(length) + 1;
    return true;
}

// Writes what the file has in front of its records. They do not count as a record.
bool begin(Capture* capture) {
    if (capture->settings.format != CaptureFormat::kPcap) {
        return true;
    }
    if (!pcap_begin(capture)) {
        return false;
    }
    const bool is_written = batch_write(capture) == TAVU_SUCCESS;
    errno = is_written ? errno : capture->state.error;
    capture->state.records = 0;
    return is_written;
}

}  // namespace

int capture_close(Capture* capture) {
    if (capture == nullptr) {
        return TAVU_SUCCESS;
    }
    const int result = capture->fd < 0 || close(capture->fd) == 0 ? TAVU_SUCCESS : TAVU_FAILURE;
    const int reason = errno;
    delete capture;
    errno = reason;
    return result;
}

CapturePointer capture_open(const char* path, const CaptureSettings& settings) {
    constexpr mode_t kReadableByAll = 0666;  // less what the umask says
    if (path == nullptr || !std::all_of(settings.interfaces.name.begin(),
                                        settings.interfaces.name.end(), interface_is_valid)) {
        errno = EINVAL;
        return nullptr;
    }
    CapturePointer capture(new (std::nothrow) Capture);
    if (capture == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    capture->settings = settings;
    // Appending, so that the end is where the next record goes after a cut.
    capture->fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, kReadableByAll);
    if (capture->fd < 0 || !begin(capture.get())) {
        const int reason = errno;
        capture.reset();
        errno = reason;
        return nullptr;
    }
    return capture;
}

int capture_write(Capture* capture, std::span<const Record> records) {
    if (capture == nullptr) {
        return TAVU_FAILURE;
    }
    const auto add = capture->settings.format == CaptureFormat::kPcap ? pcap_add : log_add;
    Batch& batch = capture->batch;
    int result = TAVU_SUCCESS;
    for (const Record& record : records) {
        if (batch.is_full() && batch_write(capture) != TAVU_SUCCESS) {
            result = TAVU_FAILURE;
        }
        if (add(capture, record)) {
            batch.ends[batch.count++] = batch.length;
        } else {
            ++capture->state.lost;
            capture->state.error = EINVAL;
            result = TAVU_FAILURE;
        }
    }
    if (batch.count > 0 && batch_write(capture) != TAVU_SUCCESS) {
        result = TAVU_FAILURE;
    }
    return result;
}

int capture_sync(Capture* capture) {
    if (capture == nullptr) {
        errno = EINVAL;
        return TAVU_FAILURE;
    }
    // Only the descriptor is looked at, which no write changes. What cannot be synchronised, such as
    // a pipe, has no disk.
    return fdatasync(capture->fd) == 0 || errno == EINVAL || errno == EROFS ? TAVU_SUCCESS
                                                                            : TAVU_FAILURE;
}

CaptureState capture_state(const Capture* capture) {
    return capture == nullptr ? CaptureState{} : capture->state;
}

}  // namespace trace
