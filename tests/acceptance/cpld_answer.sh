#!/bin/sh
# The acceptance of cpld beside a driver that leaves channel 7, register 9 and value 0x1234 in every record and
# returns 5: what is printed is the driver's answer, not the request.
# SPDX-License-Identifier: MIT
. "${0%/*}/checks.sh"

answers 'ch=7, reg9, data=0x1234 value=0x5' '23270000 01000000 17000000 00000000 00000000 00000000' 0 1 23
answers 'ch=7, reg9, data=0x1234 value=0x5' '25270000 01000000 17000000 30000000 00000000 00000000' 1 1 23 0x30
answers 'ch=7, reg9, data=0x1234 value=0x5' '22270000 01000000 17000000 00000000 00000000 00000000' 2 1 23
answers 'ch=7, reg9, data=0x1234 value=0x5' '24270000 01000000 17000000 30000000 00000000 00000000' 3 1 23 0x30
answers 'debug off' '35270000 00000000 00000000 00000000 00000000 00000000' 4 1
answers 'ch=7, reg9, data=0x1234 value=0xffffffff' '00000000 01000000 02000000 00000000 00000000 00000000' 7 1 2

summary
