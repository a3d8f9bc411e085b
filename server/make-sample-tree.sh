#!/usr/bin/env bash
# Makes the reference update server's sample firmware tree, signed with a key made
# by tools/make-dev-key.sh:  make-sample-tree.sh KEYDIR OUTDIR
set -euo pipefail
keydir=${1:?usage: make-sample-tree.sh KEYDIR OUTDIR}
out=${2:?OUTDIR missing}
kit="$(dirname "$0")/../tools/make-firmware-kit.sh"
work=$(mktemp -d /tmp/mvtree.XXXXXX)
trap 'rm -rf "$work"' EXIT

pair() { # folder name
    bash "$kit" "$keydir" "$work/$2" "$2" 3 2 65536 >/dev/null
    mkdir -p "$work/tree/$1"
    mv "$work/$2"/*.zip.gpg "$work/tree/$1/"
}

# The released version, exactly one.
pair TesselNINE_Latest Tessel_NINE_V1_2_4
# Expert mode: several versions, one with its OS file alone, one in a user's folder.
pair TesselNINE_Unstable Tessel_NINE_V1_2_5
pair TesselNINE_Unstable Tessel_NINE_V1_3_0
pair TesselNINE_Unstable/jdoe Tessel_NINE_V1_3_1_D
bash "$kit" "$keydir" "$work/lonely" Tessel_NINE_V1_3_2 1 1 65536 >/dev/null
mv "$work/lonely/Tessel_NINE_V1_3_2.OS.zip.gpg" "$work/tree/TesselNINE_Unstable/"
# The released boot loader.
bash "$kit" "$keydir" "$work/bl" Tessel_NINE_V2_0_1 1 1 65536 --bootloader >/dev/null
mkdir -p "$work/tree/TesselNINE_Bootloader"
mv "$work/bl/Tessel_NINE_V2_0_1.BL.zip.gpg" "$work/tree/TesselNINE_Bootloader/"
# Brio Mel firmware is one .zkl file a version.
mkdir -p "$work/tree/BRIO_MEL_Latest" "$work/tree/BRIO_MEL_Unstable"
head -c 65536 /dev/urandom > "$work/tree/BRIO_MEL_Latest/BRIO_MEL_2_1.zkl"
for v in 2_2 2_3; do head -c 65536 /dev/urandom > "$work/tree/BRIO_MEL_Unstable/BRIO_MEL_$v.zkl"; done

rm -rf "$out"
mkdir -p "$(dirname "$out")"
mv "$work/tree" "$out"
touch "$out/.complete"
