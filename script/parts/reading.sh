#!/usr/bin/env bash
# Builds devlog and measures the cost of following the log channel; see reading.py.
# usage: script/bench reading [--write]
# SPDX-License-Identifier: MIT
set -euo pipefail
cd "$(dirname "$0")/../.."

[ "$(id -u)" -eq 0 ] || exec sudo "$0" "$@"  # a namespace, and real-time priorities
script/bootstrap python3
out=build/reading
mkdir -p "$out"
{
  cmake --preset release -DBUILD_TESTING=OFF -DDEVSUPPORT_STORE=OFF -DDEVSUPPORT_ANALOGSIM=OFF -B "$out"
  cmake --build "$out"
  cc -std=c99 -Wall -Wextra -Werror -O2 -Iinclude script/parts/fleet_writer.c -o "$out/fleet_writer" \
    -L "$out" -ldevsupport -Wl,-rpath,"$PWD/$out"
} >"$out/build.log" 2>&1 || { cat "$out/build.log"; exit 1; }
exec unshare --ipc python3 -B script/parts/reading.py "$@"
