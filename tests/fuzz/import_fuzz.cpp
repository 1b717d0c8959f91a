// tests/fuzz/import_fuzz.cpp - test: any file may be imported; a short one sends nothing.
// Uses lib/lib_tavu_2.h and tests/fuzz/wire.h. Thread: one.
// SPDX-License-Identifier: MIT
#include "lib/lib_tavu_2.h"

#include "tests/fuzz/wire.h"

#include <sys/mman.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int port = fuzz::open_port();
    const int file = memfd_create("import", 0);
    fuzz::demand(write(file, data, size) == static_cast<ssize_t>(size), "the input is stored");
    std::array<char, 32> path{};
    snprintf(path.data(), path.size(), "/proc/self/fd/%d", file);
    fuzz::feed({});
    TAVUImpCfg(port, path.data());
    close(file);
    fuzz::demand(size >= 92 || fuzz::feed({}) == 0, "a short file sends nothing");
    return 0;
}
