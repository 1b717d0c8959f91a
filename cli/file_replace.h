// cli/file_replace.h - command: writes a small file whole or not at all.
// Thread: main.
// SPDX-License-Identifier: MIT
#ifndef CLI_FILE_REPLACE_H
#define CLI_FILE_REPLACE_H

#include <string>
#include <string_view>

namespace cli {

// Makes `bytes` the content of a file. They are written beside it and take its place once the disk
// has them, so a full disk or a power cut leaves the old file. What is no regular file, such as a
// pipe, is written to directly. False: errno tells why, and nothing new is left behind.
bool file_replace(const std::string& path, std::string_view bytes);

}  // namespace cli

#endif
