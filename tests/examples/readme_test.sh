#!/bin/sh
# The program that README shows whole is the one that is built.
# usage: readme_test.sh README PROGRAM
# SPDX-License-Identifier: MIT
set -eu
awk '/^```c$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$1" >shown.c
grep -v SPDX-License-Identifier "$2" | diff -u - shown.c
