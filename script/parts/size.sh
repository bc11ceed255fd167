#!/usr/bin/env bash
# Measures sizes on the device: cpld, the tools, the library, and the memory of a process that uses log and store.
# usage: script/bench size [--write]      fails when an aim is missed
#   script/bench size            prints the tables, each number with its change since it was last recorded
#   script/bench size --write    also records them in docs/benchmarks.md
# SPDX-License-Identifier: MIT
set -euo pipefail
cd "$(dirname "$0")/../.."

case $#,${1-} in
  0, | 1,--write) ;;
  *) sed -n '3,5s/^# //p' "$0" >&2; exit 2 ;;
esac

script/bootstrap g++-mipsel-linux-gnu python3
script/parts/fetch libdb5.3 libdb5.3-dev libgtest-dev libgmock-dev

out=build/figures/size
mkdir -p "$out"
quietly() {
  "$@" >build/size.log 2>&1 || { cat build/size.log; exit 1; }
}

# Dynamic programs and the shared library; and the static library, whose code is not position-independent.
quietly cmake --preset size
quietly cmake --build --preset size
quietly cmake --preset mips
quietly cmake --build --preset mips --target devsupport_static

# The checks of the package for the library's dependencies and symbols, with the device's binaries.
export NM=mipsel-linux-gnu-nm READELF=mipsel-linux-gnu-readelf
tests/install/runtime_test.sh build/mips/libdevsupport.a build/size/libdevsupport.so
mapfile -t headers < <(find include/devsupport -name '*.h')
tests/install/exports_test.sh build/size/libdevsupport.so "${headers[@]}"

# The files of the device; script/device boots one.
resident=()
if [ -x script/device ]; then
  script/device run resident >"$out/resident.txt"
  resident=(--resident "$out/resident.txt")
fi
python3 script/parts/size.py "$@" "${resident[@]}"
