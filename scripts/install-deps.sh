#!/usr/bin/env bash
# Installs the Debian 12 packages the build, the program and the tests need.
# Safe to run again: apt skips what is already there.
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  qt6-base-dev qt6-5compat-dev qt6-tools-dev qt6-tools-dev-tools qt6-l10n-tools
  qt6-translations-l10n libgl-dev
  libzip-dev zlib1g-dev libcurl4-openssl-dev libssl-dev
  gpg gpg-agent zip unzip
  php-cli python3-pyftpdlib openssl
  xvfb xauth xdotool imagemagick libxcb1-dev
  dosfstools fusefat
  libudev-dev libqt6sql6-sqlite libqt6sql6-psql postgresql-15
  libmicrohttpd-dev chromium chromium-driver python3-selenium python3-prometheus-client
  dfu-util umockdev libumockdev-dev dpkg-dev file appstream desktop-file-utils lintian systemd
  fonts-dejavu-core poppler-utils
  clang libfuzzer-14-dev
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
