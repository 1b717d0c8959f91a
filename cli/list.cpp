// cli/list.cpp - command: tavu list, the modules found and the ports that could not be asked.
// Uses cli/module.h.
// Thread: main.
// SPDX-License-Identifier: MIT
#include "cli/command.h"
#include "cli/module.h"
#include "cli/options.h"

#include "lib/lib_tavu_2.h"

#include <array>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace cli {

namespace {

struct Found {
    int port;
    VER_INFO version;
};

struct Unasked {
    int port;
    std::string reason;
};

// JSON text of a string. The name of a program that holds a port may have any characters.
std::string quoted(const std::string& text) {
    std::string result = "\"";
    for (const char letter : text) {
        if (letter >= 0 && letter < ' ') {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(letter));
            result += escape.data();
            continue;
        }
        if (letter == '"' || letter == '\\') {
            result += '\\';
        }
        result += letter;
    }
    return result + '"';
}

void print_json(const std::vector<Found>& found, const std::vector<Unasked>& unasked) {
    std::printf("{\n  \"modules\": [");
    const char* comma = "";
    for (const auto& [port, version] : found) {
        std::printf("%s\n    {\"port\": %s, \"number\": %d, \"firmware\": %s, \"model\": %s}",
                    comma, quoted(TAVUPortName(port)).c_str(), port, quoted(version.fw).c_str(),
                    quoted(version.model).c_str());
        comma = ",";
    }
    std::printf("\n  ],\n  \"unusable\": [");
    comma = "";
    for (const auto& [port, reason] : unasked) {
        std::printf("%s\n    {\"port\": %s, \"number\": %d, \"reason\": %s}", comma,
                    quoted(TAVUPortName(port)).c_str(), port, quoted(reason).c_str());
        comma = ",";
    }
    std::printf("\n  ],\n  \"library\": %s\n}\n", quoted(TAVUVersion()).c_str());
}

void print_text(const std::vector<Found>& found, const std::vector<Unasked>& unasked) {
    for (const auto& [port, version] : found) {
        std::printf("%s: port %d, firmware %s, model %s\n", TAVUPortName(port), port, version.fw,
                    version.model);
    }
    for (const auto& [port, reason] : unasked) {
        std::fprintf(stderr, "%s: %s\n", TAVUPortName(port), reason.c_str());
    }
    if (found.empty()) {
        complain("no module found");
    }
}

// A busy machine may miss an answer, so it is asked for again.
bool is_version_read(int port, VER_INFO* version) {
    constexpr int kTries = 3;
    int result = TAVU_FAILURE;
    for (int tries = 0; tries < kTries && result != TAVU_SUCCESS; ++tries) {
        result = TAVUShowVer(port, version);
    }
    return result == TAVU_SUCCESS;
}

int list(bool as_json) {
    std::vector<Found> found;
    std::vector<Unasked> unasked;
    for (int port = 0; port < TAVU_PORT_CNT && !is_interrupted(); ++port) {
        if (TAVUOpenDevice(port) == TAVU_SUCCESS) {
            Found module{port, {}};
            if (is_version_read(port, &module.version)) {
                found.push_back(module);
            } else {
                unasked.push_back({port, "a module answers, but does not tell its version"});
            }
            TAVUCloseDevice(port);
            continue;
        }
        std::array<char, TAVU_REASON_SIZE> reason{};
        if (TAVUPortReason(port, reason.data()) != TAVU_PORT_ABSENT) {
            unasked.push_back({port, reason.data()});
        }
    }
    if (is_interrupted()) {  // a part would pass for all
        complain("interrupted");
        return kDone;
    }
    (as_json ? print_json : print_text)(found, unasked);
    return found.empty() ? kNoPort : kDone;
}

}  // namespace

void add_list(CLI::App& app, Work& work) {
    CLI::App& command =
        add_subcommand(app, "list", "Show the modules and why other ports are none");
    const auto as_json = std::make_shared<bool>(false);
    add_flag(command, "--json", *as_json, "print JSON");
    set_action(command, work, [as_json] { return list(*as_json); });
}

}  // namespace cli
