#!/usr/bin/env bash
# Builds the fuzz targets (clang, libFuzzer, ASan, UBSan) in build-fuzz or FUZZ_BUILD_DIR
# and runs each for SECONDS from its seeds; non-zero on a finding, kept in BUILD/findings.
# FUZZ_RUNS and FUZZ_MAX_LEN bound the executions and the inputs' length (README).
set -uo pipefail
seconds=${1:?usage: bash tests/fuzz/run.sh SECONDS [TARGET...]}
shift
cd "$(dirname "$0")/../.."
build=${FUZZ_BUILD_DIR:-build-fuzz}
CC=clang CXX=clang++ cmake -S . -B "$build" -DMORVANTA_FUZZ=ON -DBUILD_TESTING=OFF \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null || exit 1
cmake --build "$build" -j2 --target fuzzers >/dev/null || { cmake --build "$build" --target fuzzers; exit 1; }

targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=($(cd tests/fuzz && ls fuzz_*.cpp | sed 's/^fuzz_//; s/\.cpp$//'))
mkdir -p "$build/findings"
# Qt keeps its one-time allocations to the end; a leak is no finding of ours. Qt has no
# frame pointers: past two frames ASan's unwinder reads data as return addresses, every
# allocation's stack looks new and ASan's stack store grows by gigabytes in a long run.
# Rerun a kept input without these options for whole allocation stacks.
export ASAN_OPTIONS=detect_leaks=0:abort_on_error=1:quarantine_size_mb=64:malloc_context_size=2 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
status=0
printf '%-16s %12s %10s  %s\n' target executions "per second" exit
for name in "${targets[@]}"; do
    corpus=$build/corpus/$name
    mkdir -p "$corpus"
    log=$build/findings/$name.log
    # New inputs go to the build's corpus, the seeds stay as they are. One input may
    # take 128 MB at once; ASan keeps freed memory a while, hence 2 GB for the process.
    "$build/fuzz/fuzz_$name" -max_total_time="$seconds" ${FUZZ_RUNS:+-runs=$FUZZ_RUNS} ${FUZZ_MAX_LEN:+-max_len=$FUZZ_MAX_LEN} \
        -timeout=10 -rss_limit_mb=2048 -malloc_limit_mb=128 \
        -print_final_stats=1 -artifact_prefix="$build/findings/$name-" "$corpus" "tests/fuzz/corpus/$name" \
        >"$log" 2>&1
    rc=$?
    execs=$(awk '/stat::number_of_executed_units/ {print $2}' "$log")
    rate=$(awk '/stat::average_exec_per_sec/ {print $2}' "$log")
    printf '%-16s %12s %10s  %d\n' "$name" "${execs:-?}" "${rate:-?}" "$rc"
    if [ "$rc" -ne 0 ]; then
        status=1
        grep -E 'ERROR|does not hold|SUMMARY|Test unit written' "$log" | head -5 | sed 's/^/    /'
    fi
done
exit $status
