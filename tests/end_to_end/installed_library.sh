#!/bin/sh
# tests/end_to_end/installed_library.sh - test: the examples compile against the installed library, as C and as C++,
# through pkg-config and through the CMake package, and run on a simulated module.
# usage: installed_library.sh SOURCE_FOLDER BUILD_FOLDER
# SPDX-License-Identifier: MIT
set -eu
source=$1
build=$2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix

cmake --install "$build" --prefix "$prefix" --component development >/dev/null
cmake --install "$build" --prefix "$prefix" >/dev/null
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name tavu_2.pc)")
export PKG_CONFIG_PATH
flags=$(pkg-config --cflags --libs tavu_2)
LD_LIBRARY_PATH=$(pkg-config --variable=libdir tavu_2)
export LD_LIBRARY_PATH
# shellcheck disable=SC2086 # a list of words
gcc -std=c99 -Wall -Wextra -Wpedantic -Werror "$source/examples/list_modules.c" $flags -o "$scratch/list_modules"
# shellcheck disable=SC2086
g++ -std=c++20 -Wall -Wextra -Wpedantic -Werror "$source/examples/send_receive.cpp" $flags -o "$scratch/send_receive"

cmake -G Ninja -S "$source/examples" -B "$scratch/cmake" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/cmake" >/dev/null

sim=$prefix/bin/tavu-sim
"$sim" --port ttyACM0 -- "$scratch/list_modules" | tee "$scratch/list"
grep -q '^port 24: firmware 03.10, build 1234, library 3\.[0-9.]*$' "$scratch/list"
"$sim" --port ttyACM0 -- "$scratch/send_receive" 24 | tee "$scratch/frames"
grep -q '^10 of 10 frames received$' "$scratch/frames"
"$sim" --port ttyACM0 -- "$scratch/cmake/list_modules" | grep -q '^1 module found$'
