// tests/gui/filter_test.cpp - test: which texts are filters, why others are none, and what passes.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "gui/monitor/filter.h"

#include "trace/text.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// One frame of each sort, named by channel, direction, identifier and kind.
constexpr std::pair<const char*, const char*> kSamples[] = {
    {"1r100", "can0 100#11 R"},
    {"2s0FD", "can1 0FD#11 T"},
    {"1r00000100", "can0 00000100#11 R"},
    {"1s7FFfd", "can0 7FF##011 T"},
    {"2r1FFFFFFFbrs", "can1 1FFFFFFF##111 R"},
    {"1r101remote", "can0 101#R R"},
    {"1error", "can0 20000204#0008000000008000 R"},
};

// Names of the samples that pass.
std::string passing(const std::string& text) {
    FrameFilter filter;
    FilterError error;
    if (filter_parse(text, &filter, &error) != TAVU_SUCCESS) {
        return error.reason;
    }
    std::string names;
    for (const auto& [name, line] : kSamples) {
        trace::Record record;
        trace::ParseError fault;
        EXPECT_EQ(trace::log_line_parse(std::string("(1.0) ") + line, {}, &record, &fault),
                  TAVU_SUCCESS)
            << line << fault.reason;
        names +=
            filter_matches(filter, record.frame, record.is_sent) ? name + std::string(" ") : "";
    }
    return names;
}

}  // namespace

TEST(Filter, FramesPassThatFitOneWordOfEachKindAndNoUnwantedOne) {
    const std::string all = passing("");
    EXPECT_EQ(all, "1r100 2s0FD 1r00000100 1s7FFfd 2r1FFFFFFFbrs 1r101remote 1error ");
    for (const auto& [text, names] : std::vector<std::pair<std::string, std::string>>{
             {" \t ", all},
             {"CAN2", "2s0FD 2r1FFFFFFFbrs "},
             {"can1 can2", all},
             {"!can1", "2s0FD 2r1FFFFFFFbrs "},
             {"sent", "2s0FD 1s7FFfd "},
             {"can1 TX", "1s7FFfd "},
             {"rx !can1", "2r1FFFFFFFbrs "},
             {"classic", "1r100 2s0FD 1r00000100 1r101remote "},
             {"classic !remote", "1r100 2s0FD 1r00000100 "},
             {"fd", "1s7FFfd 2r1FFFFFFFbrs "},
             {"fd !brs", "1s7FFfd "},
             {"error remote", "1r101remote 1error "},
             {"!error !fd", "1r100 2s0FD 1r00000100 1r101remote "},
             {"100", "1r100 "},
             {"00000100", "1r00000100 "},
             {"0fd 7ff-7ff", "2s0FD 1s7FFfd "},
             {"100-1FF !101", "1r100 "},
             {"!0-7FF", "1r00000100 2r1FFFFFFFbrs 1error "},
             {"00000000-1FFFFFFF", "1r00000100 2r1FFFFFFFbrs "},
             {"error 100", ""},
         }) {
        EXPECT_EQ(passing(text), names) << text;
    }
}

TEST(Filter, ARefusedTextNamesTheWordAndWhatCouldStandThereAndChangesNothing) {
    std::string many;
    for (int i = 0; i <= kFilterRanges; ++i) {
        many += std::to_string(i) + ' ';
    }
    for (const auto& [text, offset, length, reason] :
         std::vector<std::tuple<std::string, int, int, std::string>>{
             {"can1 can3", 5, 4, "\"can3\" is no word of a filter. These are: can1, can2, "},
             {"!", 0, 1, "\"!\" stands right before a word"},
             {" 18FE", 1, 4, "\"18FE\" has 4 digits: an 11-bit identifier has up to 3, a 29-bit "},
             {"123456789", 0, 9, "\"123456789\" has 9 digits"},
             {"800", 0, 3, "\"800\" is above 7FF"},
             {"!20000000", 0, 9, "\"20000000\" is above 1FFFFFFF"},
             {"1FF-100 can1", 0, 7, "\"1FF-100\" runs backwards"},
             {"100-", 0, 4, "\"100-\" is no range: it has two ends"},
             {"1-2-3", 0, 5, "\"1-2-3\" is no range"},
             {"100-18FEF100", 0, 12, "\"100-18FEF100\" is no range: both ends have 8 digits"},
             {"100-800", 0, 7, "\"800\" is above 7FF"},
             {many, 182, 2, "\"64\" is one identifier too many: a filter takes 64."},
             {"xxxxxxxxxxxxxxxxxxxxxxx\u00e4", 0, 25, "\"xxxxxxxxxxxxxxxxxxxxxxx...\" is no"},
         }) {
        FrameFilter filter;
        filter.channels = 7;
        FilterError error;
        EXPECT_EQ(filter_parse(text, &filter, &error), TAVU_FAILURE) << text;
        EXPECT_EQ(error.reason.substr(0, reason.size()), reason);
        EXPECT_EQ(std::pair(error.offset, error.length), std::pair(offset, length)) << text;
        EXPECT_EQ(filter.channels, 7U);
    }
}
