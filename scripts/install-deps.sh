#!/usr/bin/env bash
# Installs what the build, tests, benchmarks and fuzzers need on a fresh
# Debian machine; does nothing when everything is already there.
set -euo pipefail

need=()
have_pkg() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }
for pkg in cmake ninja-build g++ clang libclang-rt-dev googletest libgtest-dev libbenchmark-dev libfmt-dev libicu-dev \
           pkg-config binutils locales python3 tzdata cssc dpkg-dev gzip gcovr \
           libnss-wrapper libtirpc3 libtirpc-dev netbase; do
  have_pkg "$pkg" || need+=("$pkg")
done
[ ${#need[@]} -eq 0 ] && exit 0

echo "installing: ${need[*]}"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO=sudo
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${need[@]}"
