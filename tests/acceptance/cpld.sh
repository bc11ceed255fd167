#!/bin/sh
# The acceptance of cpld beside a driver of four channels whose registers are all 0 at the beginning.
# SPDX-License-Identifier: MIT
. "${0%/*}/checks.sh"

# Every command, and what it leaves in the registers.
answers 'ch=1, reg23, data=0x0 value=0x0' '23270000 01000000 17000000 00000000 00000000 00000000' 0 1 23
answers 'ch=1, reg23, data=0x30 value=0x0' '25270000 01000000 17000000 30000000 00000000 00000000' 1 1 23 0x30
answers 'ch=1, reg23, data=0x30 value=0x0' '23270000 01000000 17000000 00000000 00000000 00000000' 0 1 23
answers 'ch=1, reg23, data=0x0 value=0x0' '22270000 01000000 17000000 00000000 00000000 00000000' 2 1 23
answers 'ch=1, reg7, data=0x4d2 value=0x0' '24270000 01000000 07000000 d2040000 00000000 00000000' 3 1 7 1234
answers 'ch=1, reg7, data=0x4d2 value=0x0' '22270000 01000000 07000000 00000000 00000000 00000000' 2 1 7
answers 'ch=1, reg7, data=0x0 value=0x0' '23270000 01000000 07000000 00000000 00000000 00000000' 0 1 7
answers 'ch=3, reg23, data=0x0 value=0x0' '23270000 03000000 17000000 00000000 00000000 00000000' 0 3 23
answers 'debug on' '35270000 00000000 00000000 00000000 00000000 00000000' 4 1
answers 'debug on' '35270000 01000000 00000000 00000000 00000000 00000000' 4 0
answers 'debug on' '35270000 00000000 00000000 00000000 00000000 00000000' 4 -2
answers 'debug on' '35270000 01000000 00000000 00000000 00000000 00000000' 4 off

# Values: decimal, hexadecimal or octal by their prefix, clamped as a 32-bit long is.
answers 'ch=0, reg1, data=0x30 value=0x0' '25270000 00000000 01000000 30000000 00000000 00000000' 1 0 1 060
answers 'ch=0, reg1, data=0xffffffff value=0x0' '25270000 00000000 01000000 ffffffff 00000000 00000000' 1 0 1 -1
answers 'ch=0, reg1, data=0x7fffffff value=0x0' '25270000 00000000 01000000 ffffff7f 00000000 00000000' 1 0 1 0xffffffff
answers 'ch=0, reg1, data=0x80000000 value=0x0' '25270000 00000000 01000000 00000080 00000000 00000000' 1 0 1 -4294967296
answers 'ch=0, reg1, data=0xc value=0x0' '25270000 00000000 01000000 0c000000 00000000 00000000' 1 0 1 12ab
answers 'ch=0, reg1, data=0x0 value=0x0' '25270000 00000000 01000000 00000000 00000000 00000000' 1 0 1 garbage

# Channels and registers: decimal only, up to the first character that is no digit.
answers 'ch=2, reg10, data=0x0 value=0x0' '23270000 02000000 0a000000 00000000 00000000 00000000' 0 ' +2nd' 010
answers 'ch=0, reg0, data=0x0 value=0x0' '23270000 00000000 00000000 00000000 00000000 00000000' 0 0x10 ''
answers 'ch=0, reg-1, data=0x0 value=0x0' '23270000 00000000 ffffffff 00000000 00000000 00000000' get one -1
answers 'ch=0, reg2147483647, data=0x0 value=0x0' '23270000 00000000 ffffff7f 00000000 00000000 00000000' 0 0 4294967295

# Requests that fail: the driver's answer is -1, the record comes back as it went, and the status is 0 all the same.
answers 'ch=4, reg23, data=0x0 value=0xffffffff' '23270000 04000000 17000000 00000000 00000000 00000000' 0 4 23
answers 'ch=-1, reg23, data=0x0 value=0xffffffff' '22270000 ffffffff 17000000 00000000 00000000 00000000' 2 -1 23
answers 'ch=9, reg23, data=0x5 value=0xffffffff' '25270000 09000000 17000000 05000000 00000000 00000000' 1 9 23 5
answers 'ch=9, reg23, data=0x5 value=0xffffffff' '24270000 09000000 17000000 05000000 00000000 00000000' 3 9 23 5

# Commands that do not exist go to the driver as request 0.
answers 'ch=1, reg2, data=0x0 value=0xffffffff' '00000000 01000000 02000000 00000000 00000000 00000000' 7 1 2
answers 'ch=1, reg2, data=0x0 value=0xffffffff' '00000000 01000000 02000000 00000000 00000000 00000000' -1 1 2
answers 'ch=1, reg0, data=0x0 value=0xffffffff' '00000000 01000000 00000000 00000000 00000000 00000000' 5 1
answers 'ch=1, reg2, data=0x0 value=0xffffffff' '00000000 01000000 02000000 00000000 00000000 00000000' 7 1 2 0x30 5 6

# Wrong numbers of words.
shows_usage
shows_usage 0
shows_usage 7
shows_usage 0 1
shows_usage 0 1 23 0x30
shows_usage 1 1 23
shows_usage 1 1 23 0x30 1
shows_usage 2 1
shows_usage 2 1 23 0x30
shows_usage 3 1 23
shows_usage 4
shows_usage 4 1 0
shows_usage help me

# What was written above is still there, and nothing that failed or showed its usage has changed it.
answers 'ch=1, reg23, data=0x30 value=0x0' '23270000 01000000 17000000 00000000 00000000 00000000' 0 1 23
answers 'ch=1, reg7, data=0x4d2 value=0x0' '22270000 01000000 07000000 00000000 00000000 00000000' 2 1 7

summary
