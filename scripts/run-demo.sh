#!/usr/bin/env bash
# Installs what is missing, builds, and starts Morvanta beside the simulated device tools.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j2
exec build/bin/morvanta "$@"
