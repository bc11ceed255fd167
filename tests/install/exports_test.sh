#!/bin/sh
# Fails when the shared library does not export a function that a header declares.
# usage: [NM=nm] exports_test.sh SHARED_LIBRARY HEADER...
# SPDX-License-Identifier: MIT
set -eu
library=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A declaration begins in the first column and names its function in front of the first parenthesis.
sed -n '/^typedef/d; /^static/d; s/^[A-Za-z][^(]*[ *]\([A-Za-z_0-9]*\)(.*/\1/p' "$@" | sort -u >"$work/declared"
test -s "$work/declared"
"${NM:-nm}" --dynamic --defined-only "$library" | sed -n 's/^[0-9a-f]* [A-Za-z] //p' | sort -u >"$work/exported"
missing=$(comm -23 "$work/declared" "$work/exported")
[ -z "$missing" ] || { echo "declared, but not exported: $missing"; exit 1; }
