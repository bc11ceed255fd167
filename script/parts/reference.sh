#!/usr/bin/env bash
# Makes the reference of the public headers with Doxygen: FOLDER/html and FOLDER/man/man3, one page a family, and for
# each function a page that links to its family's. Fails on any warning and on a function without a page. script/reference
# and the build (DEVSUPPORT_REFERENCE) call it.
# usage: script/parts/reference.sh FOLDER
# SPDX-License-Identifier: MIT
set -euo pipefail
cd "$(dirname "$0")/../.."

DEVSUPPORT_OUTPUT=${1:?usage: script/parts/reference.sh FOLDER}
DEVSUPPORT_VERSION=$(sed -n 's/^#define DEVSUPPORT_VERSION_[MP][A-Z]* \([0-9]*\)$/\1/p' \
  include/devsupport/text/Version.h | paste -sd.)
mapfile -t headers < <(find include/devsupport -mindepth 2 -name '*.h' ! -path '*/detail/*' | sort)
DEVSUPPORT_HEADERS=${headers[*]}
export DEVSUPPORT_OUTPUT DEVSUPPORT_VERSION DEVSUPPORT_HEADERS

pages=$DEVSUPPORT_OUTPUT/man/man3
rm -rf "$DEVSUPPORT_OUTPUT/html" "$DEVSUPPORT_OUTPUT/man"
mkdir -p "$DEVSUPPORT_OUTPUT"
doxygen docs/Doxyfile

# Doxygen also makes pages of files and folders; ours are those of families and records.
find "$pages" -name '*.3' ! -name 'devsupport_*' ! -name 'T[A-Z]*' -delete
find "$pages" -name '*.h.3' -delete

# The declarations as the checks of the package find them, independent of the filter.
missing=0
for header in "${headers[@]}"; do
  unit=$(basename "$header" .h)
  for name in $(sed -n '/^typedef/d; s/^[A-Za-z][^(]*[ *]\([A-Za-z_0-9]*\)(.*/\1/p' "$header"); do
    if ! grep -q "[ *]$name (" "$pages/devsupport_$unit.3"; then
      echo "script/reference: devsupport_$unit.3 does not describe $name" >&2
      missing=1
    fi
    printf '.so man3/devsupport_%s.3\n' "$unit" >"$pages/$name.3"
  done
done
[ "$missing" -eq 0 ] || exit 1
echo "reference: $(find "$pages" -name 'devsupport_*' | wc -l) families," \
  "$(grep -l '^\.so' "$pages"/*.3 | wc -l) functions"
