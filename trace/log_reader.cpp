// trace/log_reader.cpp - trace: .log files, read line by line.
// Uses trace/capture.h, trace/text.h.
// Thread: any, one at a time for each reader.
// SPDX-License-Identifier: MIT
#include "trace/capture.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <new>
#include <string.h>

namespace trace {

struct LogReader {
    Interfaces interfaces;
    int fd = -1;
    std::array<char, 65536> text;
    std::size_t begin = 0;  // of what was read and not handed out yet
    std::size_t end = 0;
    bool is_file_end = false;
    std::int64_t line = 0;
};

namespace {

enum class Piece { kLine, kTooLong, kNone, kFailed };

bool read_more(LogReader* reader) {
    memmove(reader->text.data(), reader->text.data() + reader->begin, reader->end - reader->begin);
    reader->end -= reader->begin;
    reader->begin = 0;
    ssize_t count = 0;
    do {
        count =
            read(reader->fd, reader->text.data() + reader->end, reader->text.size() - reader->end);
    } while (count < 0 && errno == EINTR);
    reader->is_file_end = count == 0;
    reader->end += count > 0 ? static_cast<std::size_t>(count) : 0;
    return count >= 0;
}

// Takes the next line, without its end; of one that is too long, only the end is found.
Piece line_take(LogReader* reader, std::string_view* line) {
    bool is_long = false;
    while (true) {
        const std::string_view rest(reader->text.data() + reader->begin,
                                    reader->end - reader->begin);
        const std::size_t length = rest.find('\n');
        if (length != std::string_view::npos || reader->is_file_end) {
            *line = rest.substr(0, length);
            reader->begin += std::min(rest.size(), line->size() + 1);
            if (rest.empty() && !is_long) {
                return Piece::kNone;
            }
            ++reader->line;
            return is_long || line->size() > kTextMost ? Piece::kTooLong : Piece::kLine;
        }
        if (rest.size() > kTextMost) {
            is_long = true;
            reader->begin = reader->end;
        }
        if (!read_more(reader)) {
            return Piece::kFailed;
        }
    }
}

}  // namespace

void LogReaderCloser::operator()(LogReader* reader) const {
    if (reader->fd >= 0) {
        close(reader->fd);
    }
    delete reader;
}

LogReaderPointer log_open(const char* path, const Interfaces& interfaces) {
    LogReaderPointer reader(new (std::nothrow) LogReader);
    if (reader == nullptr || path == nullptr) {
        errno = path == nullptr ? EINVAL : ENOMEM;
        return nullptr;
    }
    reader->interfaces = interfaces;
    reader->fd = open(path, O_RDONLY | O_CLOEXEC);
    return reader->fd < 0 ? nullptr : std::move(reader);
}

LogResult log_read(LogReader* reader, Record* record, LogFault* fault) {
    while (true) {
        std::string_view line;
        switch (line_take(reader, &line)) {
            case Piece::kNone:
                return kLogEnd;
            case Piece::kFailed:
                return kLogFailed;
            case Piece::kTooLong:
                *fault = {reader->line, {kTextMost, "the line is too long"}};
                return kLogBroken;
            case Piece::kLine:
                break;
        }
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        if (line.find_first_not_of(" \t") == std::string_view::npos) {
            continue;
        }
        ParseError error;
        if (log_line_parse(line, reader->interfaces, record, &error) == TAVU_SUCCESS) {
            return kLogRecord;
        }
        *fault = {reader->line, error};
        return kLogBroken;
    }
}

std::int64_t log_line(const LogReader* reader) {
    return reader->line;
}

}  // namespace trace
