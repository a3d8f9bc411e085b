#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole test suite twice: in a plain
# build and in a build with AddressSanitizer and UndefinedBehaviorSanitizer; then every
# fuzz target for a short while.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh

run_suite() {
    local dir=$1; shift
    cmake -S . -B "$dir" "$@" >/dev/null
    cmake --build "$dir" -j2
    (cd "$dir" && ctest --output-on-failure --timeout 600)
}

run_suite build -DCMAKE_BUILD_TYPE=RelWithDebInfo
# Qt's and fontconfig's one-time allocations are not ours to chase; leaks stay off.
ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    run_suite build-sanitize -DCMAKE_BUILD_TYPE=Debug -DMORVANTA_SANITIZE=ON
# A short search; the long one is run by hand (bash tests/fuzz/run.sh SECONDS).
bash tests/fuzz/run.sh "${FUZZ_SECONDS:-20}"
