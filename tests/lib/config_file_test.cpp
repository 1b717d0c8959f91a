// tests/lib/config_file_test.cpp - test: the configuration file, written and applied.
// Uses the public calls against a simulated module; tests/gui/config_dialogs_test.cpp imports a cut file.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

TEST(ConfigFile, ImportAppliesWhatExportSavedAndNoRefusedStepStopsTheOthers) {
    OpenModule module;
    const std::string path = testing::TempDir() + "tavu_" + std::to_string(getpid()) + ".cfg";
    const std::array<std::uint8_t, 23> saved = {9,    1,    2,    0x12, 0x34, 0x56, 0x78, 0x3F,
                                                0xFF, 0xFF, 0xFF, 3,    0,    1,    0,    0,
                                                7,    0x12, 0,    0,    7,    0xFF, 0xFF};
    module.set_state({.config = saved});
    std::ofstream(path) << "an older file";
    module.expect(TAVU_SUCCESS, {"37 37 0D 0A"}, [&] { return TAVUExpCfg(kPort, path.c_str()); });
    std::string words;
    for (int i = 1; i <= 23; ++i) {
        const int word = i * (saved[static_cast<std::size_t>(i - 1)] + 1);
        words += {static_cast<char>(word), static_cast<char>(word / 256), 0, 0};
    }
    std::ifstream file(path, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), words);

    Texts steps = {"35 35 0D 0A",
                   "36 36 0D 0A",
                   "30 09 03 3C 0D 0A",
                   "33 01 00 34 0D 0A",
                   "38 FF 37 0D 0A",
                   "31 02 12 34 56 78 3F FF FF FF 83 0D 0A",
                   "32 01 00 00 07 12 00 00 07 FF 52 0D 0A"};
    const auto import = [&] { return TAVUImpCfg(kPort, path.c_str()); };
    module.expect(TAVU_SUCCESS, steps, import);
    module.set_state({.firmware = {0x02, 0x09}});  // knows no 50 kbit/s
    steps.erase(steps.begin() + 2);
    module.expect(TAVU_FAILURE, steps, import);
    std::filesystem::remove(path);
}

TEST(ConfigFile, WhatIsNoRegularFileIsRefusedWithoutAWaitAndNothingIsSent) {
    OpenModule module;
    const std::string fifo = testing::TempDir() + "tavu_" + std::to_string(getpid()) + ".fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& path : {fifo, testing::TempDir(), std::string("/dev/zero")}) {
        EXPECT_EQ(TAVUImpCfg(kPort, path.c_str()), TAVU_FAILURE) << path;
    }
    EXPECT_TRUE(module.sent().empty());
    std::filesystem::remove(fifo);
}
