// lib/config_file.cpp - library: saves the module's configuration to a file and loads one.
// Uses lib/link.h. The file holds the classic configuration only.
// Thread: any, one exchange per port at a time.
// SPDX-License-Identifier: MIT
#include "lib/link.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>

namespace tavu {
namespace {

using ConfigBytes = std::array<unsigned char, kConfigBytes>;
using FileImage = std::array<unsigned char, 4 * kConfigBytes>;  // words, low byte first

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// Opens a regular file for reading; null if it is none. It never waits, as a FIFO's open would.
File regular_file_open(const char* path) {
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        return nullptr;
    }
    struct stat status {};
    File file(fstat(fd, &status) == 0 && S_ISREG(status.st_mode) ? fdopen(fd, "rb") : nullptr);
    if (file == nullptr) {
        close(fd);
    }
    return file;
}

FileImage image_encode(std::span<const unsigned char, kConfigBytes> config) {
    ConfigWords words{};
    std::copy(config.begin(), config.end(), words.begin());
    linear_encode(words);
    FileImage image{};
    for (std::size_t i = 0; i < image.size(); ++i) {
        image[i] = static_cast<unsigned char>(words[i / 4] >> (8 * (i % 4)));
    }
    return image;
}

ConfigBytes image_decode(const FileImage& image) {
    ConfigWords words{};
    for (std::size_t i = 0; i < image.size(); ++i) {
        words[i / 4] |= static_cast<std::uint32_t>(image[i]) << (8 * (i % 4));
    }
    linear_decode(words);
    ConfigBytes config{};
    std::transform(words.begin(), words.end(), config.begin(),
                   [](std::uint32_t word) { return static_cast<unsigned char>(word); });
    return config;
}

FILTER_INFO filter_of(int can_port, const ChannelConfig& channel) {
    return {.CAN_port = can_port,
            .flt_type = channel.flt_type,
            .flt_id = channel.flt_id,
            .mask = channel.flt_mask};
}

// Every step is attempted, whatever the earlier ones gave.
int config_apply(int com_port, const ModuleConfig& config) {
    const auto& [can1, can2] = config.channel;
    const std::array<int, 5> results = {
        TAVUSetBaudRate(com_port, can1.baud, can2.baud),
        TAVUSetMode(com_port, can1.mode, can2.mode),
        TAVUSetErrorType(com_port, config.err_set),
        TAVUSetFilter(com_port, filter_of(TAVU_CAN_1, can1)),
        TAVUSetFilter(com_port, filter_of(TAVU_CAN_2, can2)),
    };
    const bool is_applied = std::all_of(results.begin(), results.end(),
                                        [](int result) { return result == TAVU_SUCCESS; });
    return is_applied ? TAVU_SUCCESS : TAVU_FAILURE;
}

}  // namespace
}  // namespace tavu

using namespace tavu;

int TAVUExpCfg(int com_port, const char* path) {
    Reply<kConfigBytes> reply{};
    if (path == nullptr || exchange(com_port, expcfg_cmd, reply) != TAVU_SUCCESS) {
        return TAVU_FAILURE;
    }
    const File file(std::fopen(path, "wbe"));
    if (file == nullptr) {
        return TAVU_FAILURE;
    }
    const FileImage image = image_encode(reply_data(reply));
    std::fwrite(image.data(), 1, image.size(), file.get());
    return TAVU_SUCCESS;
}

int TAVUImpCfg(int com_port, const char* path) {
    if (path == nullptr) {
        return TAVU_FAILURE;
    }
    FileImage image{};
    {
        const File file = regular_file_open(path);
        if (file == nullptr ||
            std::fread(image.data(), 1, image.size(), file.get()) < image.size()) {
            return TAVU_FAILURE;
        }
    }
    return config_apply(com_port, config_decode(image_decode(image)));
}
