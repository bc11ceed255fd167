#!/bin/sh
# The program that README shows whole is the one that is built.
# usage: readme_test.sh README PROGRAM
set -eu
awk '/^```c$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$1" | diff -u "$2" -
