#!/usr/bin/env bash
# What a script does without a watch: polls "list" every 100 ms and starts a "flash --port"
# per new unit, until COUNT runs have ended.  flash-loop.sh STATION COUNT HISTORY FIRMWARE
set -u
station=$1 count=$2 history=$3 firmware=$4
started=()
while [ ${#started[@]} -lt "$count" ]; do
    for port in $("$station" list --json | grep -o '"port":"[^"]*"' | cut -d'"' -f4); do
        [[ " ${started[*]} " == *" $port "* ]] && continue
        started+=("$port")
        "$station" flash --port "$port" --history "$history" "$firmware" >/dev/null &
    done
    sleep 0.1
done
failed=0
for job in $(jobs -p); do wait "$job" || failed=$((failed + 1)); done
[ "$failed" -eq 0 ] || echo "  $failed runs of the loop failed" >&2
