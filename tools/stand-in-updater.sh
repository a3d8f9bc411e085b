#!/bin/sh
# Stands in for the maker's updater in the demo and the tests: records how it was
# called, one argument a line, in $STAND_IN_UPDATER_RECORD (or beside itself).
record=${STAND_IN_UPDATER_RECORD:-$(dirname "$0")/updater-called.txt}
printf '%s\n' "$@" > "$record"
