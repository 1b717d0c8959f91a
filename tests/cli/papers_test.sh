#!/bin/bash
# tests/cli/papers_test.sh - test: completion and manual page of tavu against the help of the command itself.
# usage: papers_test.sh COMMAND COMPLETION MANUAL_PAGE
# SPDX-License-Identifier: MIT
set -u
command=$1
manual=$(realpath "$3")
# shellcheck source=packaging/tavu.bash
source "$2"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1
touch ttyACM3 ttyUSB0 ttyS0 night.log
failures=0

# expect WHAT WANTED GOT
expect() {
    [[ $2 == "$3" ]] || { printf '%s:\n  wanted: %s\n  got:    %s\n' "$1" "$2" "$3"; failures=$((failures + 1)); }
}

sorted() { tr -s ' ' '\n' | sort -u | paste -sd ' '; }

# What the shell offers behind these words, the last of which is being typed.
offered() {
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
    _tavu
    printf '%s\n' "${COMPREPLY[@]}" | sorted
}

subcommands=$("$command" --help | sed '1,/^Subcommands/d; /^$/,$d' | awk '{ print $1 }' | sorted)
expect subcommands "$subcommands" "$(offered tavu "")"
for subcommand in $subcommands; do
    options=$("$command" "$subcommand" --help | grep -oE '^ +(-.,)?--[a-z]+' | grep -oE -- '--[a-z]+' | sorted)
    expect "options of $subcommand" "$options" "$(offered tavu "$subcommand" --)"
    for option in $options; do
        [[ $option == --help ]] || grep -Fq -- "${option//-/\\-}" "$manual" || expect "manual page" "$option" nothing
    done
    grep -q "^\.SH TAVU ${subcommand^^}$" "$manual" || expect "manual page" "a section of $subcommand" none
done

expect ports "ttyACM3 ttyUSB0" "$(_tavu_ports "$scratch" | sorted)"
_tavu_ports() { echo ttyACM3 ttyUSB0; }
expect "a port" ttyACM3 "$(offered tavu dump --accept 1 : 123/7FF ttyA)"
expect "a second port" "" "$(offered tavu dump ttyACM3 ttyU)"
expect "a value" host "$(offered tavu dump --stamp h)"
expect "a file" night.log "$(offered tavu dump ttyACM3 --log = n)"
expect "port or file" "night.log ttyACM3 ttyS0 ttyUSB0" "$(offered tavu play --speed 2 "")"
expect "a file to play" night.log "$(offered tavu play ttyACM3 -b 250 n)"
expect "what to do" "export import show" "$(offered tavu config ttyACM3 "")"
expect "a file to save to" night.log "$(offered tavu config export n)"
exit $((failures > 0))
