#!/bin/sh
# Fails when the library needs a symbol of a C++ runtime, or exports a name that is not C's.
# usage: [NM=nm] [READELF=readelf] runtime_test.sh STATIC_LIBRARY SHARED_LIBRARY
# SPDX-License-Identifier: MIT
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0

needed=$("${READELF:-readelf}" -d "$2" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
case $needed in
  *stdc++*) echo "the shared library needs: $needed"; status=1 ;;
esac

# What one of the archive's own members defines is no need of the library.
"${NM:-nm}" --defined-only "$1" | sed -n 's/^[0-9a-f]* [A-Za-z] //p' | sort -u >"$work/defined"
"${NM:-nm}" --undefined-only "$1" | sed -n 's/^ *[Uw] //p' | sort -u >"$work/undefined"
test -s "$work/defined"
runtime=$(comm -23 "$work/undefined" "$work/defined" | grep -E '^(_Z|__cxa|__gxx)' || true)
[ -z "$runtime" ] || { echo "the static library needs of a C++ runtime: $runtime"; status=1; }

"${NM:-nm}" --dynamic --defined-only "$2" | sed -n 's/^[0-9a-f]* [A-Za-z] //p' >"$work/exported"
test -s "$work/exported"
mangled=$(grep '^_Z' "$work/exported" || true)
[ -z "$mangled" ] || { echo "names without C linkage are exported: $mangled"; status=1; }
exit $status
