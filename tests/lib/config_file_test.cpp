// tests/lib/config_file_test.cpp - test: the configuration file, written and applied.
// Uses the public calls against a simulated module, with a file of its own.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>

struct ConfigFile : testing::Test {
    ~ConfigFile() override { std::filesystem::remove(path_); }

    const std::string path_ = testing::TempDir() + "tavu_" + std::to_string(getpid()) + ".cfg";
    OpenModule module_;
};

TEST_F(ConfigFile, ImportAppliesWhatExportSavedAndNoRefusedStepStopsTheOthers) {
    const std::array<std::uint8_t, 23> saved = {9,    1,    2,    0x12, 0x34, 0x56, 0x78, 0x3F,
                                                0xFF, 0xFF, 0xFF, 3,    0,    1,    0,    0,
                                                7,    0x12, 0,    0,    7,    0xFF, 0xFF};
    module_.set_state({.config = saved});
    std::ofstream(path_) << "an older file";
    module_.expect(TAVU_SUCCESS, {"37 37 0D 0A"}, [&] { return TAVUExpCfg(kPort, path_.c_str()); });
    std::string words;
    for (int i = 1; i <= 23; ++i) {
        const int word = i * (saved[static_cast<std::size_t>(i - 1)] + 1);
        words += {static_cast<char>(word), static_cast<char>(word / 256), 0, 0};
    }
    std::ifstream file(path_, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), words);

    std::ofstream(path_, std::ios::app) << "bytes beyond the end";
    Texts steps = {"35 35 0D 0A",
                   "36 36 0D 0A",
                   "30 09 03 3C 0D 0A",
                   "33 01 00 34 0D 0A",
                   "38 FF 37 0D 0A",
                   "31 02 12 34 56 78 3F FF FF FF 83 0D 0A",
                   "32 01 00 00 07 12 00 00 07 FF 52 0D 0A"};
    const auto import = [&] { return TAVUImpCfg(kPort, path_.c_str()); };
    module_.expect(TAVU_SUCCESS, steps, import);
    module_.set_state({.firmware = {0x02, 0x09}});  // knows no 50 kbit/s
    steps.erase(steps.begin() + 2);
    module_.expect(TAVU_FAILURE, steps, import);
}

TEST_F(ConfigFile, UnusableFilesAndAnswersTouchNothing) {
    std::ofstream(path_) << std::string(91, '\x01');
    for (const std::string& path : {path_, path_ + ".missing", testing::TempDir()}) {
        EXPECT_EQ(TAVUImpCfg(kPort, path.c_str()), TAVU_FAILURE) << path;
    }
    EXPECT_TRUE(module_.sent().empty());
    module_.script_reply(0x37, hex("37 01 38 0D 0A"));
    EXPECT_EQ(TAVUExpCfg(kPort, path_.c_str()), TAVU_FAILURE);
    EXPECT_EQ(std::filesystem::file_size(path_), 91U);
    EXPECT_EQ(TAVUExpCfg(kPort, testing::TempDir().c_str()), TAVU_FAILURE);
    module_.expect(TAVU_SUCCESS, {"37 37 0D 0A"}, [] { return TAVUExpCfg(kPort, "/dev/full"); });
}
