// tests/lib/config_file_test.cpp - test: the configuration file, written and applied.
// Uses the public calls against a simulated module, in a directory of its own.
// SPDX-License-Identifier: MIT
#include "tests/lib/support.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

class ConfigFile : public testing::Test {
  protected:
    ConfigFile() { std::filesystem::create_directory(directory_); }
    ~ConfigFile() override { std::filesystem::remove_all(directory_); }

    [[nodiscard]] std::string path(const char* name) const { return directory_ / name; }
    [[nodiscard]] std::string content() const {
        std::ifstream in(path("tavu.cfg"), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    void write(const std::string& bytes) const {
        std::ofstream(path("tavu.cfg"), std::ios::binary) << bytes;
    }
    int import() { return TAVUImpCfg(kPort, path("tavu.cfg").c_str()); }
    int write_out() { return TAVUExpCfg(kPort, path("tavu.cfg").c_str()); }

    std::filesystem::path directory_ =
        std::filesystem::path(testing::TempDir()) / ("tavu_" + std::to_string(getpid()));
    OpenModule module_;
};

TEST_F(ConfigFile, WordsCarryTheModulesBytes) {
    module_.change([](auto& state) { state.config = {}; });
    ASSERT_EQ(write_out(), TAVU_SUCCESS);
    std::string counted;
    for (char i = 1; i <= 23; ++i) {
        counted += {i, 0, 0, 0};
    }
    EXPECT_EQ(content(), counted);
    module_.change([](auto& state) { state.config[0] = 7, state.config[22] = 255; });
    ASSERT_EQ(write_out(), TAVU_SUCCESS);
    EXPECT_EQ(content().substr(0, 4), std::string("\x08\0\0\0", 4));
    EXPECT_EQ(content().substr(88), std::string("\0\x17\0\0", 4));
}

TEST_F(ConfigFile, ImportRestoresWhatExportSaved) {
    const std::array<std::uint8_t, 23> saved = {9,    1,    2,    0x12, 0x34, 0x56, 0x78, 0x3F,
                                                0xFF, 0xFF, 0xFF, 3,    0,    1,    0,    0,
                                                0x07, 0x12, 0,    0,    0x07, 0xFF, 2};
    module_.change([&](auto& state) { state.config = saved; });
    ASSERT_EQ(write_out(), TAVU_SUCCESS);
    module_.change([](auto& state) { state.config = {}; });
    module_.sent();
    write(content() + "bytes beyond the end");
    EXPECT_EQ(import(), TAVU_SUCCESS);
    EXPECT_EQ(module_.station.state().config, saved);
    EXPECT_EQ(module_.sent(),
              (Texts{"35 35 0D 0A", "36 36 0D 0A", "30 09 03 3C 0D 0A", "33 01 00 34 0D 0A",
                     "38 02 3A 0D 0A", "31 02 12 34 56 78 3F FF FF FF 83 0D 0A",
                     "32 01 00 00 07 12 00 00 07 FF 52 0D 0A"}));
}

TEST_F(ConfigFile, RefusedStepDoesNotStopTheOthers) {
    module_.change([](auto& state) { state.config[0] = 2, state.config[1] = 1; });
    ASSERT_EQ(write_out(), TAVU_SUCCESS);
    module_.change([](auto& state) { state.config = {}, state.firmware = {0x02, 0x09}; });
    module_.sent();
    EXPECT_EQ(import(), TAVU_FAILURE);
    EXPECT_EQ(module_.station.state().config[1], 1);
    EXPECT_EQ(module_.sent().size(), 6U) << "two version reads, no bit rate, four settings";
}

TEST_F(ConfigFile, UnusableFilesSendNothing) {
    write(std::string(91, '\x01'));
    EXPECT_EQ(import(), TAVU_FAILURE);
    EXPECT_EQ(TAVUImpCfg(kPort, path("missing").c_str()), TAVU_FAILURE);
    EXPECT_EQ(TAVUImpCfg(kPort, directory_.c_str()), TAVU_FAILURE);
    EXPECT_TRUE(module_.sent().empty());
}

TEST_F(ConfigFile, ExportCreatesNoFileWithoutAConfiguration) {
    module_.station.script_reply(0x37, hex("37 01 38 0D 0A"));
    EXPECT_EQ(write_out(), TAVU_FAILURE);
    EXPECT_FALSE(std::filesystem::exists(path("tavu.cfg")));
    EXPECT_EQ(TAVUExpCfg(kPort, path("no/such/directory").c_str()), TAVU_FAILURE);
    EXPECT_EQ(TAVUExpCfg(kPort, directory_.c_str()), TAVU_FAILURE);
    EXPECT_EQ(TAVUExpCfg(kPort, "/dev/full"), TAVU_SUCCESS) << "write errors are not reported";
}

}  // namespace
