#!/usr/bin/env bash
# Installs what is missing, builds, and starts Morvanta with Debian's dfu-util against the
# emulated Tessel NINE (tools/tessel-emulator) and the reference update server (stopped
# again when the program ends). The demo keeps its own home folder (build/demo-home) and
# program folder (build/demo-app), so a real configuration is never touched.
#   With a display: the window, in user mode ("--internal" for internal mode).
#   Without one:    an unattended flash of the released firmware under Xvfb, with its exit code.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j2

mode=user
[ "${1:-}" = "--internal" ] && { mode=internal; shift; }

# The reference update server, where this build's deployment looks for it.
base=$(sed -n 's/^MORVANTA_HTTP_BASE_URL:STRING=//p' build/CMakeCache.txt)
hostport=$(echo "$base" | sed -E 's#^[a-z]+://([^/]+).*#\1#')
if (exec 3<>"/dev/tcp/${hostport%:*}/${hostport#*:}") 2>/dev/null; then
    echo "Something already listens on $hostport; stop it and start the demo again." >&2
    exit 1
fi
MORVANTA_FIRMWARE_ROOT=$PWD/build/server/tree MORVANTA_ACCOUNTS=$PWD/build/server/accounts.ini \
    php -S "$hostport" server/router.php >build/demo-server.log 2>&1 &
server=$!
trap 'kill $server 2>/dev/null || true' EXIT
echo "Reference update server on $base (firmware: build/server/tree)"

export HOME=$PWD/build/demo-home
mkdir -p "$HOME/Downloads"
# The program finds its tools beside itself: here the system's gpg and Debian's dfu-util,
# run inside the emulator's testbed, where a Tessel NINE with firmware 1.2.3 is plugged in.
app=$PWD/build/demo-app
mkdir -p "$app"
cp build/bin/morvanta "$app/"
ln -sfn "$(command -v gpg)" "$app/gpg"
ln -sfn "$PWD/build/bin/dfu-util-umockdev" "$app/dfu-util"
emulated=("$PWD/build/bin/tessel-emulator" --device "name=V1_2_3" --)

if [ -n "${DISPLAY:-}" ]; then
    printf '[General]\nmode=%s\n' "$mode" > "$HOME/Morvanta_config.ini"
    echo "Press \"Search...\" on \"Download from server\", pick a folder (e.g. $HOME/Downloads),"
    echo "then \"Update\" on \"USB Cable\" flashes it on the emulated device."
    "${emulated[@]}" "$app/morvanta" "$@" || code=$?
    exit "${code:-0}"
fi

released=$PWD/build/server/tree/TesselNINE_Latest
echo "No display: flashing the released firmware ($released) unattended under Xvfb."
printf '[General]\nmode=internal\n' > "$HOME/Morvanta_config.ini"
set +e
xvfb-run -a -s "-screen 0 1280x1024x24 -noreset" "${emulated[@]}" "$app/morvanta" -a -p "$released"
code=$?
set -e
echo "Morvanta ended with exit code $code. Log:"
tail -n 5 "$(ls -t "${TMPDIR:-/tmp}"/morvanta-"$(id -u)"*/instance-*/logfile.txt | head -n 1)"
exit $code
