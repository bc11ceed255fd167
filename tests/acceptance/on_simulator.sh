#!/bin/sh
# Runs an acceptance script of cpld beside the simulated driver, which leaves its trace in a file.
# usage: on_simulator.sh ANALOGSIM CPLD SCRIPT [OPTION_OF_ANALOGSIM...]
# SPDX-License-Identifier: MIT
simulator=$1 script=$3
PATH=${2%/*}:$PATH
shift 3

DRIVER_TRACE=$(mktemp) || exit 1
trap 'rm -f "$DRIVER_TRACE"' EXIT
trap 'exit 1' HUP INT TERM
export DRIVER_TRACE
export ASAN_OPTIONS="$ASAN_OPTIONS:verify_asan_link_order=0" # the simulator's library is loaded first

# The trace is all that the simulator says on standard error; the script's own goes where ours goes.
"$simulator" --trace-bytes "$@" -- sh -c 'exec sh "$0" 2>&3 3>&-' "$script" 3>&2 2>"$DRIVER_TRACE"
