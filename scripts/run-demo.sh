#!/usr/bin/env bash
# Installs what is missing, builds, makes signed sample firmware, and starts Morvanta
# beside the simulated device tools. The demo keeps its own home folder
# (build/demo-home), so a real configuration is never touched.
#   With a display: the window; pick the sample firmware with "Search..." and press "Update".
#   Without one:    an unattended flash of the sample firmware under Xvfb, with its exit code.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j2

sample=$PWD/build/sample-firmware
[ -f "$sample/Tessel_NINE_V1_2_4.OS.zip.gpg" ] ||
    bash tools/make-firmware-kit.sh build/devkey "$sample" Tessel_NINE_V1_2_4 3 2 262144 >/dev/null

export HOME=$PWD/build/demo-home
mkdir -p "$HOME"
# The simulated Tessel NINE runs firmware 1.2.3 and takes a few seconds per file.
export DFU_SIM_NAME=${DFU_SIM_NAME:-V1_2_3} DFU_SIM_HASH_MS=${DFU_SIM_HASH_MS:-2500}

if [ -n "${DISPLAY:-}" ]; then
    [ -f "$HOME/Morvanta_config.ini" ] ||
        printf '[General]\nmode=user\nsearchPath=%s\n' "$sample/Tessel_NINE_V1_2_4.OS.zip.gpg" > "$HOME/Morvanta_config.ini"
    echo "Sample firmware: $sample"
    exec build/bin/morvanta "$@"
fi

echo "No display: flashing $sample unattended under Xvfb (the Info box is closed by the exit)."
printf '[General]\nmode=internal\n' > "$HOME/Morvanta_config.ini"
set +e
xvfb-run -a -s "-screen 0 1280x1024x24 -noreset" build/bin/morvanta -a -p "$sample"
code=$?
set -e
echo "Morvanta ended with exit code $code. Log:"
tail -n 5 "$(ls -t "${TMPDIR:-/tmp}"/morvanta-"$(id -u)"*/instance-*/logfile.txt | head -n 1)"
exit $code
