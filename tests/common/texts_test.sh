#!/bin/sh
# A tool's --help, manual page and completion name the same options and commands.
# usage: texts_test.sh PROGRAM MANUAL_PAGE COMPLETION
# SPDX-License-Identifier: MIT
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$1" --help >"$work/help"
sed 's/\\-/-/g' "$2" >"$work/manual"
cp "$3" "$work/completion"
status=0

# same WHAT FILE FILE: reports what only one of two sorted lists has.
same() {
  if ! comm -3 "$2" "$3" >"$work/difference" || [ -s "$work/difference" ]; then
    echo "$1: only in $(basename "$2") | only in $(basename "$3")"
    cat "$work/difference"
    status=1
  fi
}

for text in help manual completion; do
  grep -oE -- '(^|[^a-z-])--[a-z][a-z-]*' "$work/$text" | sed 's/^[^-]//' | sort -u >"$work/$text-options"
  [ -s "$work/$text-options" ] || { echo "no options found in the $text"; exit 1; }
done
same options "$work/help-options" "$work/manual-options"
same options "$work/help-options" "$work/completion-options"

# The manual lists an option or a command in the line after .TP.
awk 'after { print } { after = /^\.TP/ }' "$work/manual" >"$work/listed"
sed -nE 's/^ +(-[A-Za-z]), ?--.*/\1/p' "$work/help" | sort -u >"$work/help-letters"
grep -oE -- '(^|[^a-z-])-[A-Za-z]([^A-Za-z-]|$)' "$work/listed" | grep -oE -- '-[A-Za-z]' | sort -u >"$work/manual-letters"
same letters "$work/help-letters" "$work/manual-letters"

# Commands are what the help, and the manual, list before the options.
sed -nE '/^Options:/q; s/^  ([a-z]+) .*/\1/p' "$work/help" | sort -u >"$work/help-commands"
if [ -s "$work/help-commands" ]; then
  awk '/^\.SH OPTIONS/ { exit } after { print } { after = /^\.TP/ }' "$work/manual" |
    sed -nE 's/^\.B[RI]* "?([a-z]+).*/\1/p' | sort -u >"$work/manual-commands"
  sed -nE "/'0 '\)/s/.*-W '([a-z ]*)'.*/\1/p" "$work/completion" | tr ' ' '\n' | sort -u >"$work/completion-commands"
  same commands "$work/help-commands" "$work/manual-commands"
  same commands "$work/help-commands" "$work/completion-commands"
fi
exit $status
