#!/bin/sh
# tests/fresh/readme.sh - test: runs the commands of a page in their order, as one who copies them would.
# usage: readme.sh PAGE
# Commands are the lines of the blocks marked ```sh. A line that opens the window is left to run for some seconds and
# must still be running then. ./demo and ./check have steps of their own.
# SPDX-License-Identifier: MIT
set -eu
page=$1
tools=$(dirname "$0")/../../tools
if [ -z "${DISPLAY:-}" ]; then
    exec "$tools/with_display" sh "$0" "$page"
fi

window() {
    status=0
    timeout 10 sh -c "$1" || status=$?
    [ "$status" -eq 124 ] || { echo "the window did not stay: exit status $status"; return 1; }
}

count=0
while read -r line; do
    case $line in
    '' | '#'* | ./demo* | ./check*) continue ;;
    esac
    printf '$ %s\n' "$line"
    case $line in
    *tavu-utility | *tavu-utility\)) window "$line" ;;
    *) sh -c "$line" ;;
    esac </dev/null
    count=$((count + 1))
done <<EOF
$(awk '/^```sh$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$page")
EOF
[ "$count" -gt 0 ] || { echo "$page has no command"; exit 1; }
echo "$count commands of $page ran"
