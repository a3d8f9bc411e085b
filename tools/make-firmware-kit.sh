#!/usr/bin/env bash
# Builds signed sample firmware for the demo and for manual tests:
#   make-firmware-kit.sh KEYDIR OUTDIR [NAME] [OS_FILES] [PR_FILES] [SIZE] [--bootloader] [--plain]
# KEYDIR holds secret.asc (build/devkey). Writes NAME.OS.zip.gpg and NAME.PR.zip.gpg
# (and NAME.BL.zip.gpg) into OUTDIR; with --plain the unsigned .zip files instead.
set -euo pipefail
keydir=${1:?usage: make-firmware-kit.sh KEYDIR OUTDIR [NAME] [OS] [PR] [SIZE] [--bootloader] [--plain]}
out=${2:?OUTDIR missing}
shift 2
positional=()
bootloader=0
plain=0
for arg in "$@"; do
    case "$arg" in
    --bootloader) bootloader=1 ;;
    --plain) plain=1 ;;
    *) positional+=("$arg") ;;
    esac
done
name=${positional[0]:-Tessel_NINE_V1_2_4}
os_files=${positional[1]:-3}
pr_files=${positional[2]:-2}
size=${positional[3]:-65536}

mkdir -p "$out"
out=$(cd "$out" && pwd)
work=$(mktemp -d /tmp/mvfw.XXXXXX)
trap 'gpgconf --homedir "$work/gnupg" --kill all >/dev/null 2>&1 || true; rm -rf "$work"' EXIT

# The emulated Tessel NINE (tools/tessel-emulator) takes its new name from the firmware:
# "Tessel_NINE_V1_2_4" runs as "V1_2_4", "Tessel_NINE_01_02_04" as "Tessel_NINE 01.02.04".
version=${name#Tessel_NINE_}
case "$version" in
V*) device_name=$version ;;
*) device_name="Tessel_NINE ${version//_/.}" ;;
esac

package() { # stage count kind
    local stage=$1 count=$2 kind=$3
    mkdir -p "$work/$kind/$stage"
    for i in $(seq -w 1 "$count"); do
        local file="$work/$kind/$stage/${stage}_$i.sys"
        if [ "$stage" = bl ]; then
            head -c "$size" /dev/urandom > "$file"
        else
            printf 'TESSEL_NAME=%s\n' "$device_name" > "$file"
            head -c $((size - $(stat -c %s "$file"))) /dev/urandom >> "$file"
        fi
    done
    (cd "$work/$kind" && zip -qr "$work/$name.$kind.zip" "$stage")
    if [ "$plain" = 1 ]; then
        cp "$work/$name.$kind.zip" "$out/"
    else
        gpg --homedir "$work/gnupg" --batch --yes --quiet --sign -o "$out/$name.$kind.zip.gpg" "$work/$name.$kind.zip"
    fi
}

if [ "$plain" = 0 ]; then
    mkdir -m 700 "$work/gnupg"
    gpg --homedir "$work/gnupg" --batch --quiet --import "$keydir/secret.asc"
fi
package os "$os_files" OS
package pr "$pr_files" PR
[ "$bootloader" = 1 ] && package bl 1 BL
ls -1 "$out"
