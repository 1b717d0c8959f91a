// tests/trace/support.h - test: frames to compare, files that go away.
// SPDX-License-Identifier: MIT
#ifndef TESTS_TRACE_SUPPORT_H
#define TESTS_TRACE_SUPPORT_H

#include "trace/record.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>

// A frame of the library of which only the fields that matter need be named.
struct Frame {
    int CAN_port = TAVU_CAN_1;
    int id_type = TAVU_SID;
    int rtr = TAVU_DIS_RTR;
    int dlc = 0;
    int msg_type = TAVU_DATA_TYPE;
    int brs = TAVU_BRS_OFF;
    int esi = 0;
    int fdf = TAVU_FDF_OFF;
    unsigned int id = 0;
    std::array<unsigned char, 64> data{};

    operator CAN_FRAME_INFO() const {
        CAN_FRAME_INFO frame{};
        frame.CAN_port = CAN_port;
        frame.id_type = id_type;
        frame.rtr = rtr;
        frame.dlc = dlc;
        frame.msg_type = msg_type;
        frame.brs = brs;
        frame.esi = esi;
        frame.fdf = fdf;
        frame.id = id;
        std::copy(data.begin(), data.end(), frame.data);
        return frame;
    }
};

// All that a record tells, as text.
inline std::string told(const trace::Record& record) {
    const CAN_FRAME_INFO& frame = record.frame;
    std::ostringstream text;
    text << record.time_us << (record.is_sent ? " sent" : " received") << " port " << frame.CAN_port
         << " type " << frame.msg_type << ' ' << frame.id_type << " rtr " << frame.rtr << " dlc "
         << frame.dlc << " fd " << frame.fdf << frame.brs << frame.esi << std::hex << " id "
         << frame.id << " data";
    for (const int byte : frame.data) {
        text << ' ' << byte;
    }
    return text.str();
}

// A path in the tests' folder; the file is removed when it goes.
class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& content = "") {
        std::ofstream(path_, std::ios::binary) << content;
    }
    ~TemporaryFile() { std::filesystem::remove(path_); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    [[nodiscard]] const char* path() const { return path_.c_str(); }
    [[nodiscard]] std::string content() const {
        std::ifstream file(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    std::string path_ = testing::TempDir() + "tavu_trace_" + std::to_string(getpid());
};

// Valid records of all kinds, the same ones at each run.
class Dice {
  public:
    int up_to(int most) { return static_cast<int>(engine_() % static_cast<unsigned>(most + 1)); }

    trace::Record record() {
        trace::Record record{.time_us = static_cast<std::int64_t>(engine_() >> 2),
                             .is_sent = up_to(1) == 1};
        CAN_FRAME_INFO& frame = record.frame;
        frame.CAN_port = up_to(1);
        frame.dlc = up_to(15);
        frame.id_type = up_to(1) == 0 ? TAVU_SID : TAVU_EID;
        frame.id = static_cast<unsigned>(engine_()) &
                   (frame.id_type == TAVU_SID ? TAVU_SID_MAX : TAVU_EID_MAX);
        switch (up_to(3)) {
            case 0:
                frame.rtr = TAVU_EN_RTR;
                break;
            case 1:
                frame.fdf = TAVU_FDF_ON;
                frame.brs = up_to(1);
                frame.esi = up_to(1);
                break;
            case 2:
                frame.msg_type = TAVU_BUSERR_TYPE;
                frame.id_type = TAVU_EID;
                frame.dlc = 8;
                break;
            default:
                break;
        }
        std::generate_n(frame.data, trace::payload_bytes(frame),
                        [this] { return static_cast<unsigned char>(up_to(255)); });
        return record;
    }

  private:
    std::mt19937_64 engine_{1};
};

#endif
