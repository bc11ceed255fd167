#!/bin/sh
# The acceptance of cpld beside a driver that lets every request fail.
# SPDX-License-Identifier: MIT
. "${0%/*}/checks.sh"

answers 'ch=1, reg23, data=0x0 value=0xffffffff' '23270000 01000000 17000000 00000000 00000000 00000000' 0 1 23
answers 'ch=1, reg23, data=0x30 value=0xffffffff' '25270000 01000000 17000000 30000000 00000000 00000000' 1 1 23 0x30
answers 'ch=1, reg23, data=0x0 value=0xffffffff' '22270000 01000000 17000000 00000000 00000000 00000000' 2 1 23
answers 'ch=1, reg23, data=0x30 value=0xffffffff' '24270000 01000000 17000000 30000000 00000000 00000000' 3 1 23 0x30
answers 'debug off' '35270000 00000000 00000000 00000000 00000000 00000000' 4 1
answers 'debug off' '35270000 01000000 00000000 00000000 00000000 00000000' 4 0
answers 'ch=1, reg2, data=0x0 value=0xffffffff' '00000000 01000000 02000000 00000000 00000000 00000000' 7 1 2
shows_usage 0 1

summary
