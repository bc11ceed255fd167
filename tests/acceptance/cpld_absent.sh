#!/bin/sh
# The acceptance of cpld where there is no driver: silence and status 1, but the usage text comes all the same.
# SPDX-License-Identifier: MIT
. "${0%/*}/checks.sh"

for words in '0 1 23' '1 1 23 0x30' '2 1 23' '3 1 23 0x30' '4 1' '7 1 2'; do
  # shellcheck disable=SC2086 # several words
  check "cpld $words: no device" 'status 1' "$(run_cpld $words)"
done
check 'cpld: usage without a device' "$usage
status 0" "$(run_cpld)"

summary
