# SPDX-License-Identifier: MIT
# What the acceptance scripts of cpld share: checks that print a line each and count, and the summary.
#
# The scripts run beside any driver, with cpld on the PATH; plain POSIX shell, so that the device's shell takes them,
# too. DRIVER_TRACE names a file in which the driver leaves a line for each request, the record's 24 bytes as it
# received them at the end, after the word "bytes".

passed=0
failed=0

# check NAME WANTED GOT
check() {
  if [ "$2" = "$3" ]; then
    passed=$((passed + 1))
    echo "ok $1"
  else
    failed=$((failed + 1))
    echo "not ok $1"
    printf '%s\n' "$2" | sed 's/^/  wanted: /'
    printf '%s\n' "$3" | sed 's/^/  got:    /'
  fi
}

# All that a run of cpld says: standard output, standard error and the exit status after it.
run_cpld() {
  cpld "$@" 2>&1
  echo "status $?"
}

last_record() { tail -n 1 "$DRIVER_TRACE" | sed 's/.* bytes //'; }

# answers LINE RECORD WORD...      cpld WORD... sends this record, prints this line and ends with 0
answers() {
  line=$1 record=$2
  shift 2
  got=$(run_cpld "$@")
  check "cpld $*" "$line
status 0
$record" "$got
$(last_record)"
}

# shows_usage WORD...              cpld WORD... prints its usage, asks the driver nothing and ends with 0
shows_usage() {
  before=$(cat "$DRIVER_TRACE")
  got=$(run_cpld "$@")
  check "cpld $*: usage" "$usage
status 0
$before" "$got
$(cat "$DRIVER_TRACE")"
}

usage=$(printf '%s\n' \
  'usage: cpld cmd ch_id reg value ' \
  'example: cpld 0 1 23' \
  'example: cpld 0 1 23 0x30' \
  'set direct register 23 to the 0x30' \
  'cmd: 0:get direct reg, 1: set direct reg' \
  '     2:get indirect reg, 3: set indirect reg' \
  '     4:Set reg debug,ch_id:(1:debug on, 0:debug off)')

summary() {
  echo "$passed passed, $failed failed"
  [ "$failed" -eq 0 ]
}
