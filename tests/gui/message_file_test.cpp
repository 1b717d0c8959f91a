// tests/gui/message_file_test.cpp - test: lists of messages as text and in files, and what cells take.
// Uses gui/monitor/; no window.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/transmit_fields.h"
#include "gui/widgets.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

constexpr const char* kLines =
    "on   can0  100 ms  x0  123#DEADBEEF  # speed # of the engine\n"
    "off  can1  0.125 ms  x1000000000  18FEF100##1000102030405060708090A0B\n"
    "off  can0  3600000 ms  x7  7FF#R5\n"
    "on   can1  2.5 ms  x0  00000001##0  # Größe\n";

// Of the file's name and of what stands in it.
struct MessageFile : testing::Test {
    MessageFile() {
        GError* error = nullptr;
        folder.reset(g_dir_make_tmp("messagesXXXXXX", &error));
        path = folder.get() + std::string("/list.txt");
    }
    ~MessageFile() override { std::filesystem::remove_all(folder.get()); }
    void write(const std::string& text) const {
        g_file_set_contents(path.c_str(), text.c_str(), -1, nullptr);
    }
    GText folder;
    std::string path;
    MessageList list;
    std::string fault;
};

TEST_F(MessageFile, ListsComeBackAsTheyWere) {
    ASSERT_TRUE(messages_parse(kLines, &list, &fault)) << fault;
    ASSERT_EQ(list.size(), 4U);
    EXPECT_TRUE(list[0].is_on && list[0].name == "speed # of the engine");
    EXPECT_TRUE(list[1].period_us == 125 && list[1].frame.brs == 1 && list[1].frame.CAN_port == 1);
    EXPECT_TRUE(list[2].frame.rtr == 1 && list[2].frame.dlc == 5 && list[2].count == 7);
    EXPECT_TRUE(messages_write(list).ends_with(kLines));
    ASSERT_TRUE(messages_save(path.c_str(), list, &fault)) << fault;
    MessageList loaded;
    ASSERT_TRUE(messages_load(path.c_str(), &loaded, &fault)) << fault;
    EXPECT_EQ(messages_write(loaded), messages_write(list));
    write("\n  # no message\r\n \ton can0 1 ms x0 001#00.11 #  \t name \r\noff can0 1 ms x0 002#");
    ASSERT_TRUE(messages_load(path.c_str(), &loaded, &fault)) << fault;
    EXPECT_TRUE(loaded.size() == 2 && loaded[0].name == "name" && loaded[0].frame.dlc == 2);
}

TEST_F(MessageFile, ALineThatIsNoneIsNamedAndNothingIsLoaded) {
    const std::pair<const char*, const char*> rows[]{
        {"maybe can0 1 ms x0 123#", "\"maybe\" is neither on nor off"},
        {"on can2 1 ms x0 123#", "\"can2\" is no channel"},
        {"on can0 0.0999 ms x0 123#", "\"0.0999\" is no period"},
        {"on can0 3600000.001 ms x0 123#", "is no period"},
        {"on can0 1. ms x0 123#", "is no period"},
        {"on can0 -1 ms x0 123#", "is no period"},
        {"on can0 99999999999999999999 ms x0 123#", "is no period"},
        {"on can0 1 s x0 123#", "is no period"},
        {"on can0 1 ms 5 123#", "\"5\" is no count"},
        {"on can0 1 ms x1000000001 123#", "is no count"},
        {"on can0 1 ms x0 123#1", "wrong at its character 6: a byte has two"},
        {"on can0 1 ms x0", "the frame \"\" is wrong"},
        {"on can0 1 ms x0 123##2", "ESI"},
        {"on can0 1 ms x0 123#1122334455667788_9", "dlc above 8"},
        {"on can0 1 ms x0 123# name", "a name begins with #"},
        {"on can0 1 ms x0 123# # \xFF", "UTF-8"},
    };
    list.resize(1);
    for (const auto& [line, reason] : rows) {
        write(std::string("off can0 1 ms x0 001#\n\n") + line);
        EXPECT_FALSE(messages_load(path.c_str(), &list, &fault)) << line;
        EXPECT_NE(fault.find("list.txt, line 3: "), std::string::npos) << fault;
        EXPECT_NE(fault.find(reason), std::string::npos) << fault;
    }
    std::string many;
    for (std::size_t i = 0; i <= kMessagesMost; ++i) {
        many += "off can0 1 ms x0 001#\n";
    }
    EXPECT_FALSE(messages_parse(many, &list, &fault));
    EXPECT_FALSE(messages_load(folder.get(), &list, &fault)) << "a folder";
    EXPECT_FALSE(messages_load((path + "x").c_str(), &list, &fault));
    EXPECT_EQ(list.size(), 1U);
}

// The temporary file cannot be written, or not put in place of what is there.
TEST_F(MessageFile, AFileThatCannotBeSavedIsToldAndTheOldOneStays) {
    EXPECT_FALSE(messages_save((path + "/list.txt").c_str(), list, &fault));
    EXPECT_NE(fault.find("list.txt"), std::string::npos) << fault;
    std::filesystem::create_directories(path + "/full");
    EXPECT_FALSE(messages_save(path.c_str(), list, &fault));
    EXPECT_TRUE(std::filesystem::is_directory(path + "/full"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.get()), {}), 1)
        << "a temporary file is left";
}

// ---- Cells -----------------------------------------------------------------------------------

using Field = MessageField;

struct MessageCells : testing::Test {
    MessageCells() { message.frame.id_type = TAVU_SID; }
    // What the cell shows after an edit, and whether it was taken.
    std::string after(Field field, const char* text) {
        const std::string fault = field_edit(&message, field, text);
        return (fault.empty() ? "" : "refused: ") + field_text(message, field);
    }
    ListedMessage message;
};

TEST_F(MessageCells, TakeWhatCanBeSentAndShowIt) {
    EXPECT_EQ(after(Field::name, "  a\tb \n"), "a b");
    EXPECT_EQ(after(Field::channel, "CAN 2"), "CAN 2");
    EXPECT_EQ(after(Field::identifier, " 7f"), "07F");
    EXPECT_EQ(after(Field::identifier, "0007F"), "0000007F");
    EXPECT_EQ(after(Field::data, "11 22a0"), "11 22 A0");
    EXPECT_EQ(after(Field::length, "2"), "2");
    EXPECT_EQ(after(Field::length, "4"), "4");
    EXPECT_EQ(field_text(message, Field::data), "11 22 00 00");
    EXPECT_EQ(after(Field::kind, "FD BRS"), "FD BRS");
    EXPECT_EQ(after(Field::length, "12"), "12");
    EXPECT_EQ(after(Field::length, "8"), "8");
    EXPECT_EQ(after(Field::kind, "Remote"), "Remote");
    EXPECT_EQ(field_text(message, Field::data) + field_text(message, Field::length), "8");
    EXPECT_EQ(after(Field::period, "0.1"), "0.1");
    EXPECT_EQ(after(Field::period, "10.050"), "10.05");
    EXPECT_EQ(after(Field::count, "12"), "12");
}

TEST_F(MessageCells, RefuseTheRestAndKeepWhatTheyHad) {
    for (const char* text : {"", "800", "20000000", "000000001", "12G", "-1"}) {
        EXPECT_EQ(after(Field::identifier, text), "refused: 000") << text;
    }
    for (const char* text : {"9", "-1", "x", "", "4294967300"}) {
        EXPECT_EQ(after(Field::length, text), "refused: 0") << text;
    }
    for (const char* text : {"1", "1 1", "G0", "-1", "001122334455667788"}) {
        EXPECT_EQ(after(Field::data, text), "refused: ") << text;
    }
    EXPECT_EQ(after(Field::kind, "FD"), "FD");
    EXPECT_EQ(after(Field::length, "9"), "refused: 0");
    EXPECT_EQ(after(Field::data, "001122334455667788"), "refused: ");
    EXPECT_EQ(after(Field::data, std::string(130, '0').c_str()), "refused: ");
    EXPECT_EQ(after(Field::length, "64"), "64");
    EXPECT_EQ(after(Field::kind, "Data"), "refused: FD");
    EXPECT_EQ(after(Field::channel, "CAN 3"), "refused: CAN 1");
    EXPECT_EQ(after(Field::period, "0.05"), "refused: 100");
    EXPECT_EQ(after(Field::count, "1e3"), "refused: 0");
    EXPECT_EQ(after(Field::length, "0"), "0");
    EXPECT_EQ(after(Field::kind, "Remote"), "Remote");
    EXPECT_EQ(after(Field::data, "11"), "refused: ");
}

}  // namespace
