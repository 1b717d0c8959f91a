// cli/send.cpp - command: tavu send, sends frames that are given as words.
// Uses cli/sender.h, trace/text.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "cli/command.h"
#include "cli/module.h"
#include "cli/options.h"
#include "cli/sender.h"

#include "trace/text.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace cli {

namespace {

struct Options {
    std::vector<std::string> words;  // the port, if the first one is no frame, and frames
    int channel = 1;
    Setup setup;
};

bool is_frame(const std::string& word) {
    return word.find('#') != std::string::npos;
}

// The frames, none when a word is none.
std::optional<std::vector<CAN_FRAME_INFO>> frames_of(const Options& options, std::size_t first) {
    std::vector<CAN_FRAME_INFO> frames;
    for (std::size_t i = first; i < options.words.size(); ++i) {
        const std::string& word = options.words.at(i);
        CAN_FRAME_INFO frame{};
        trace::ParseError error;
        if (trace::frame_parse(word, &frame, &error) != TAVU_SUCCESS) {
            complain("%s: character %d: %s", word.c_str(), error.offset + 1, error.reason);
            return std::nullopt;
        }
        if (frame.fdf == TAVU_FDF_ON && options.setup.data_rate.empty()) {
            complain("%s: a CAN FD frame needs --fd", word.c_str());
            return std::nullopt;
        }
        frame.CAN_port = options.channel - 1;
        frames.push_back(frame);
    }
    return frames;
}

int send_all(const std::vector<CAN_FRAME_INFO>& frames, const Setup& setup, int com_port) {
    Sender sender(com_port, setup);
    for (const CAN_FRAME_INFO& frame : frames) {
        if (is_interrupted()) {
            complain("interrupted; %llu of %zu frames sent",
                     static_cast<unsigned long long>(sender.count()), frames.size());
            break;
        }
        if (const int status = sender.send(frame); status != kDone) {
            return status;
        }
    }
    sender.finish();
    return kDone;
}

int send(const Options& options) {
    const bool has_port = !is_frame(options.words.front());
    const auto frames = frames_of(options, has_port ? 1 : 0);
    if (!frames || frames->empty()) {
        if (frames) {
            complain("no frame to send");
        }
        return kUsage;
    }
    const std::string port = has_port ? options.words.front() : "";
    return with_started(port, with_only(options.setup, options.channel - 1),
                        [&](int com_port) { return send_all(*frames, options.setup, com_port); });
}

}  // namespace

void add_send(CLI::App& app, Work& work) {
    CLI::App& command = add_subcommand(app, "send", "Send frames, such as 123#DEADBEEF");
    const auto options = std::make_shared<Options>();
    add_words(command, "[PORT] FRAME...", options->words);
    add_channel_option(command, options->channel);
    add_rate_options(command, options->setup);
    set_action(command, work, [options] { return send(*options); });
}

}  // namespace cli
