#!/usr/bin/env bash
# Counts instructions for an operation on the emulated device, including the kernel's; fails when a row of ours takes over
# 3 % more than recorded. Timer ticks of the kernel during a run add to its count. bench/README.md explains the results.
# usage: script/bench device [--accept] [--write] [ROW...]
#   script/bench device            all rows that are counted there
#   script/bench device ring log   the rows whose names begin with these
#   script/bench device --write    also writes the counts into docs/benchmarks.md; for all rows
#   script/bench device --accept   records the counts in bench/baseline/device.txt; say why in the commit
# SPDX-License-Identifier: MIT
set -euo pipefail
cd "$(dirname "$0")/../.."

accept=()
write=false
wanted=()
for argument in "$@"; do
  case $argument in
    --accept) accept=(--accept) ;;
    --write) write=true ;;
    -*) sed -n '4,8s/^# //p' "$0" >&2; exit 2 ;;
    *) wanted+=("$argument") ;;
  esac
done
{ [ ${#accept[@]} -eq 0 ] && ! $write; } || [ ${#wanted[@]} -eq 0 ] || { sed -n '4,8s/^# //p' "$0" >&2; exit 2; }

device/build
# The peers that Debian has for this processor, with their libraries.
script/parts/fetch libabsl-dev libabsl20220623 libbenchmark-dev libbenchmark1debian libboost1.74-dev libdb5.3 liblmdb-dev \
  liblmdb0 libsqlite3-0 libsqlite3-dev robin-map-dev uthash-dev
out=build/bench-mips
mkdir -p "$out"
{ cmake --preset bench-mips && cmake --build --preset bench-mips --target devsupport_bench devsupport_bench_loop; } \
  >"$out.log" 2>&1 || { cat "$out.log"; exit 1; }

disk=$out/disk
rm -rf "$disk"
mkdir -p "$disk/lib/mipsel-linux-gnu"
for program in devsupport_bench devsupport_bench_loop; do
  mipsel-linux-gnu-strip -o "$disk/$program" "$out/bench/$program"
done
for library in build/mipsel/root/usr/lib/mipsel-linux-gnu/lib{absl_*,benchmark,db-5.3,lmdb,sqlite3}.so* \
  /usr/mipsel-linux-gnu/lib/lib{atomic,c,dl,gcc_s,m,pthread,rt,stdc++}.so.[0-9] /usr/mipsel-linux-gnu/lib/ld.so.1; do
  cp -a --dereference "$library" "$disk/lib/mipsel-linux-gnu"
done
PATH=$PATH:/usr/sbin:/sbin
rm -f "$disk.img"
mke2fs -q -t ext4 -O ^has_journal -m 0 -E root_owner=0:0 -d "$disk" "$disk.img" \
  "$(($(du -sm "$disk" | cut -f 1) * 11 / 10 + 16))M" >/dev/null

mapfile -t rows < <(python3 -B bench/device.py --list)
picked=()
for row in "${rows[@]}"; do
  for name in "${wanted[@]:-}"; do
    [ "${row#"$name"}" = "$row" ] || { picked+=("$row"); break; }
    [ -n "$name" ] || picked+=("$row")
  done
done
[ ${#picked[@]} -gt 0 ] || { echo "script/bench device: no such row; there are: ${rows[*]}" >&2; exit 2; }

mkdir -p build/bench/counted
result=build/bench/counted/device.json
python3 -B bench/device.py --out "$result" "$PWD/$disk.img" "${picked[@]}"
python3 -B bench/report.py --plots build/bench/counted --command "script/bench device${*:+ $*}" "$result"
! $write || python3 -B bench/report.py --device docs/benchmarks.md "$result"
python3 -B bench/counted.py --check bench/baseline/device.txt --growth 3 "${accept[@]}" "$result"
