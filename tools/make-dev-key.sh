#!/usr/bin/env bash
# Makes a throwaway signing key for development and tests.
# Writes into OUT: pubring.gpg and trustdb.gpg (the key ring the program embeds),
# secret.asc (to sign sample firmware with) and fingerprint.
set -euo pipefail
out=${1:?usage: make-dev-key.sh OUTDIR}
mkdir -p "$out"

# gpg-agent's socket path must stay short, so the scratch home lives in /tmp.
home=$(mktemp -d /tmp/mvkey.XXXXXX)
trap 'gpgconf --homedir "$home" --kill all >/dev/null 2>&1 || true; rm -rf "$home"' EXIT
chmod 700 "$home"

gpg --homedir "$home" --batch --quiet --passphrase '' \
    --quick-gen-key 'Zelko Development Signing <devkey@zelko.invalid>' rsa2048 sign never
fpr=$(gpg --homedir "$home" --batch --with-colons --list-secret-keys | awk -F: '/^fpr:/ {print $10; exit}')
gpg --homedir "$home" --batch --export "$fpr" > "$out/pubring.gpg"
gpg --homedir "$home" --batch --armor --export-secret-keys "$fpr" > "$out/secret.asc"
echo "$fpr" > "$out/fingerprint"

# A trust database that trusts this key, built beside a legacy key ring so that
# gpg keeps using pubring.gpg in the program's GPG home.
trusthome=$(mktemp -d /tmp/mvtrust.XXXXXX)
chmod 700 "$trusthome"
cp "$out/pubring.gpg" "$trusthome/pubring.gpg"
echo "$fpr:6:" | gpg --homedir "$trusthome" --batch --quiet --import-ownertrust
cp "$trusthome/trustdb.gpg" "$out/trustdb.gpg"
gpgconf --homedir "$trusthome" --kill all >/dev/null 2>&1 || true
rm -rf "$trusthome"
