// lib/receive.cpp - library: parses what the module sends unasked into frame records.
// Uses lib/link.h, lib/rs232.h. Writes nothing to the port, knows nothing of rings or windows.
// Thread: any, one receiver per port at a time.
// SPDX-License-Identifier: MIT
#include "lib/link.h"
#include "lib/rs232.h"

#include <sys/eventfd.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>

namespace tavu {
namespace {

using namespace std::chrono_literals;

// A report is sent in one go, so its parts follow each other within the latency of the serial
// driver. The header of a report that is just arriving has its other bytes right behind.
constexpr auto kHeaderGap = 2ms;
constexpr auto kBodyGap = 20ms;

constexpr std::size_t kHeaderBytes = 3;
constexpr std::size_t kFixedBytes = 17;    // CAN 2.0 frame, error and status reports
constexpr std::size_t kStampedBytes = 25;  // CAN 2.0 frame with time stamp
constexpr std::size_t kFdBytesWithoutData = 18;
constexpr std::size_t kShortEepromBytes = 9;  // the EEPROM error report comes in two lengths
constexpr int kLeastDataField = 8;

// First byte of a report; the last two have a kind of report in the second.
enum Code : unsigned char {
    kFrame = 0xE1,
    kStampedFrame = 0xE2,
    kFdFrame = 0xF1,
    kError = 0x99,
    kBusStatus = 0x62
};
enum Kind : unsigned char { kEeprom = 1, kBusError = 2, kBusStatusAnswer = 2, kProtocolStatus = 4 };
constexpr unsigned char kFdFormatBit = 0x04;

using Report = std::array<unsigned char, kFdBytesWithoutData + 64>;

// Counters of TAVU_LOSS_INFO; written by receivers, read by anyone. Relaxed: they order nothing.
struct Loss {
    std::atomic<std::uint64_t> header_short;
    std::atomic<std::uint64_t> header_unknown;
    std::atomic<std::uint64_t> body_incomplete;
};
Loss loss;

int report_lost(std::atomic<std::uint64_t>& counter) {
    counter.fetch_add(1, std::memory_order_relaxed);
    return TAVU_NO_REPORT;
}

// ---- Time text ----

timespec host_time() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

// "hh:mm:ss:" of the last second asked for; conversions cost more than all else in a report.
struct SecondText {
    time_t second = -1;
    std::array<char, 16> text{};
};

void time_text(const timespec& time, char (&text)[13]) {
    thread_local SecondText cached;
    if (time.tv_sec != cached.second) {
        tm local{};
        localtime_r(&time.tv_sec, &local);
        std::strftime(cached.text.data(), cached.text.size(), "%H:%M:%S:", &local);
        cached.second = time.tv_sec;
    }
    char* end = std::copy_n(cached.text.data(), 9, text);
    const auto ms = static_cast<int>(time.tv_nsec / 1000000);
    *end++ = static_cast<char>('0' + ms / 100);
    *end++ = static_cast<char>('0' + ms / 10 % 10);
    *end++ = static_cast<char>('0' + ms % 10);
    *end = '\0';
}

// ---- Bytes off the port ----

// One read by RS232_PollComport for the first bytes of a report, for which the waiting read mode
// waits, or by RS232_ReadPending for those behind them, which either come soon or do not come.
std::size_t port_read(int (*read)(int, unsigned char*, int), int fd,
                      std::span<unsigned char> bytes) {
    return static_cast<std::size_t>(read(fd, bytes.data(), static_cast<int>(bytes.size())));
}

// Reads on behind the `count` bytes that came first until `bytes` is full. False: nothing came for
// `gap`, or the port hung up.
bool rest_read(int fd, std::span<unsigned char> bytes, std::size_t count,
               std::chrono::milliseconds gap) {
    while (count < bytes.size()) {
        if (!RS232_WaitInput(fd, gap)) {
            return false;
        }
        const std::size_t more = port_read(RS232_ReadPending, fd, bytes.subspan(count));
        if (more == 0) {
            return false;
        }
        count += more;
    }
    return true;
}

bool body_read(int fd, std::span<unsigned char> body) {
    return rest_read(fd, body, port_read(RS232_ReadPending, fd, body), kBodyGap);
}

// The short EEPROM error report ends where the long one still has eight bytes to come.
bool eeprom_read(int fd, Report& report) {
    const std::span bytes(report);
    constexpr std::size_t kShortBody = kShortEepromBytes - kHeaderBytes;
    if (!body_read(fd, bytes.subspan<kHeaderBytes, kShortBody>())) {
        return false;
    }
    const bool is_short = report[7] == '\r' && report[8] == '\n';
    return is_short ||
           body_read(fd, bytes.subspan<kShortEepromBytes, kFixedBytes - kShortEepromBytes>());
}

// ---- Parsing ----

// Data bytes of a frame with that flags byte, and the length of the field that carries them.
int data_count(unsigned char flags) {
    return DecodeDLC_CANFD(flags >> 4);
}

std::size_t data_field(unsigned char flags) {
    return static_cast<std::size_t>(std::max(data_count(flags), kLeastDataField));
}

// Whole length of a report by its header; 0 for a header of no known report.
std::size_t report_length(const Report& report) {
    switch (report[0]) {
        case kFrame:
            return kFixedBytes;
        case kStampedFrame:
            return kStampedBytes;
        case kFdFrame:
            return (report[2] & kFdFormatBit) != 0 ? kFdBytesWithoutData + data_field(report[1])
                                                   : 0;
        case kError:
            return report[1] == kEeprom || report[1] == kBusError || report[1] == kProtocolStatus
                       ? kFixedBytes
                       : 0;
        case kBusStatus:
            return report[1] == kBusStatusAnswer ? kFixedBytes : 0;
        default:
            return 0;
    }
}

// The reports that TAVUReceive knows.
bool is_classic(const Report& report) {
    return report_length(report) == kFixedBytes &&
           !(report[0] == kError && report[1] == kProtocolStatus);
}

bool is_eeprom(const Report& report) {
    return report[0] == kError && report[1] == kEeprom;
}

void flags_decode(unsigned char flags, CAN_FRAME_INFO& info) {
    info.CAN_port = (flags & 3) - 1;
    info.id_type = ((flags >> 2) & 1) + 1;
    info.rtr = (flags >> 3) & 1;
    info.dlc = flags >> 4;
}

uint32_t little_endian(const unsigned char* bytes) {
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

void timestamp_decode(const unsigned char* bytes, CAN_FRAME_INFO& info) {
    info.timestamp = {.second = little_endian(bytes), .micro_second = little_endian(bytes + 4)};
}

// Fields that every frame report has; `body` is its identifier and the data behind that.
void frame_decode(const Report& report, const unsigned char* body, int count,
                  CAN_FRAME_INFO& info) {
    info.msg_type = TAVU_DATA_TYPE;
    flags_decode(report[1], info);
    info.id = uchar_2_uint(body);
    std::copy_n(body + 4, count, info.data);
}

int range_filter_apply(COM_NODE& node, CAN_FRAME_INFO& info) {
    const bool has_table = info.CAN_port == TAVU_CAN_1 || info.CAN_port == TAVU_CAN_2;
    if (!has_table ||
        range_enable_load(node.range_filter[static_cast<std::size_t>(info.CAN_port)]) == 0) {
        return TAVU_REPORT;
    }
    return range_filter_process(&node, &info);
}

int frame_report(COM_NODE& node, const Report& report, const timespec& time, CAN_FRAME_INFO& info) {
    switch (report[0]) {
        case kFdFrame:
            info.brs = report[2] & 1;
            info.esi = (report[2] >> 1) & 1;
            info.fdf = (report[2] >> 2) & 1;
            timestamp_decode(&report[3], info);
            frame_decode(report, &report[11], data_count(report[1]), info);
            break;
        case kStampedFrame:
            timestamp_decode(&report[2], info);
            frame_decode(report, &report[10], kLeastDataField, info);
            break;
        default:
            frame_decode(report, &report[2], kLeastDataField, info);
            break;
    }
    time_text(time, info.recv_time);
    return range_filter_apply(node, info);
}

int message_type(const Report& report) {
    if (report[0] == kBusStatus) {
        return TAVU_GETBUS_TYPE;
    }
    switch (report[1]) {
        case kEeprom:
            return TAVU_EEERR_TYPE;
        case kBusError:
            return TAVU_BUSERR_TYPE;
        default:
            return TAVU_BUSERR_PSR_TYPE;
    }
}

int status_report(const Report& report, const timespec& time, CAN_FRAME_INFO& info) {
    const int type = message_type(report);
    const unsigned char* data = &report[2];
    const unsigned char* data_end = data + sizeof info.data_err;
    if (type == TAVU_BUSERR_TYPE &&
        std::all_of(data, data_end, [](unsigned char byte) { return byte == 0; })) {
        return TAVU_NO_REPORT;
    }
    if (type != TAVU_EEERR_TYPE) {
        std::memcpy(info.data_err, data, sizeof info.data_err);
    }
    info.msg_type = type;
    time_text(time, info.recv_time);
    return TAVU_REPORT;
}

int report_decode(COM_NODE& node, const Report& report, const timespec& time,
                  CAN_FRAME_INFO& info) {
    if (report[0] == kError || report[0] == kBusStatus) {
        return status_report(report, time, info);
    }
    return frame_report(node, report, time, info);
}

// The eventfd says whether a cancel is pending; the hint only saves a batch from asking it.
bool cancel_consume(COM_NODE& node) {
    eventfd_t count = 0;
    return eventfd_read(node.cancel_fd, &count) == 0;
}

// Pairs with TAVUCancelReceive, which sets the hint after the eventfd. Sequentially consistent, so
// that the hint is down before the eventfd is read and no cancel stays behind without one.
bool batch_is_cancelled(COM_NODE& node) {
    std::atomic_ref hint(node.cancel_hint);
    return hint.load(std::memory_order_relaxed) && hint.exchange(false) && cancel_consume(node);
}

}  // namespace
}  // namespace tavu

using namespace tavu;

int TAVUReceive_CANFD(int com_port, CAN_FRAME_INFO* info) {
    COM_NODE* node = chk_is_legal_com(com_port);
    if (node == nullptr || info == nullptr) {
        return TAVU_NO_REPORT;
    }
    Report report;
    const auto header = std::span(report).first<kHeaderBytes>();
    const std::size_t count = port_read(RS232_PollComport, node->fd, header);
    if (count == 0) {
        return TAVU_NO_REPORT;
    }
    if (!rest_read(node->fd, header, count, kHeaderGap)) {
        return report_lost(loss.header_short);
    }
    const timespec time = host_time();
    const std::size_t length = report_length(report);
    if (length == 0) {
        return report_lost(loss.header_unknown);
    }
    const bool is_complete =
        is_eeprom(report)
            ? eeprom_read(node->fd, report)
            : body_read(node->fd, std::span(report).first(length).subspan(kHeaderBytes));
    return is_complete ? report_decode(*node, report, time, *info)
                       : report_lost(loss.body_incomplete);
}

int TAVUReceive(int com_port, CAN_FRAME_INFO* info) {
    COM_NODE* node = chk_is_legal_com(com_port);
    if (node == nullptr || info == nullptr) {
        return TAVU_NO_REPORT;
    }
    Report report;
    const auto bytes = std::span(report).first<kFixedBytes>();
    const std::size_t count = port_read(RS232_PollComport, node->fd, bytes);
    if (count == 0) {
        return TAVU_NO_REPORT;
    }
    if (!rest_read(node->fd, bytes, count, kBodyGap)) {
        return report_lost(loss.body_incomplete);
    }
    return is_classic(report) ? report_decode(*node, report, host_time(), *info)
                              : report_lost(loss.header_unknown);
}

int TAVUReceiveNonblock(int com_port, NON_BLOCK_INFO* info) {
    if (info == nullptr || info->can_frame_info == nullptr || info->cnt == 0) {
        return 0;
    }
    constexpr std::clock_t kTicksPerMs = CLOCKS_PER_SEC / 1000;
    const std::clock_t end = std::clock() + static_cast<std::clock_t>(info->interval) * kTicksPerMs;
    COM_NODE* node = chk_is_legal_com(com_port);
    std::uint32_t count = 0;
    bool is_cancelled = false;
    do {
        if (TAVUReceive_CANFD(com_port, &info->can_frame_info[count]) == TAVU_REPORT) {
            ++count;
        }
        is_cancelled = node != nullptr && batch_is_cancelled(*node);
    } while (!is_cancelled && std::clock() <= end && count != info->cnt);
    return static_cast<int>(count);
}

int DecodeDLC_CANFD(int code) {
    constexpr std::array<int, 16> kBytes = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
    return kBytes[static_cast<std::size_t>(std::clamp(code, 0, 15))];
}

int TAVUWaitReceive(int com_port, int timeout_ms) {
    COM_NODE* node = chk_is_legal_com(com_port);
    if (node == nullptr) {
        return TAVU_FAILURE;
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    std::array<pollfd, 2> watched = {{{node->cancel_fd, POLLIN, 0}, {node->fd, POLLIN, 0}}};
    RS232_PollUntil(watched, end);
    if (watched[0].revents != 0 && cancel_consume(*node)) {
        return TAVU_FAILURE;
    }
    const bool is_hung_up = (watched[1].revents & ~POLLIN) != 0;
    if (is_hung_up && RS232_InputCount(node->fd) == 0) {
        // A hung-up port is ready for ever, so only the cancel is watched for the time left.
        RS232_PollUntil(std::span(watched).first<1>(), end);
        cancel_consume(*node);
        return TAVU_FAILURE;
    }
    return watched[1].revents != 0 ? TAVU_SUCCESS : TAVU_FAILURE;
}

void TAVUCancelReceive(int com_port) {
    COM_NODE* node = chk_is_legal_com(com_port);
    if (node == nullptr) {
        return;
    }
    eventfd_write(node->cancel_fd, 1);
    std::atomic_ref(node->cancel_hint).store(true);
}

void TAVUGetLoss(TAVU_LOSS_INFO* info) {
    if (info == nullptr) {
        return;
    }
    *info = {.header_short = loss.header_short.load(std::memory_order_relaxed),
             .header_unknown = loss.header_unknown.load(std::memory_order_relaxed),
             .body_incomplete = loss.body_incomplete.load(std::memory_order_relaxed)};
}

void TAVUResetLoss(void) {
    loss.header_short.store(0, std::memory_order_relaxed);
    loss.header_unknown.store(0, std::memory_order_relaxed);
    loss.body_incomplete.store(0, std::memory_order_relaxed);
}
