#!/usr/bin/env bash
# Installs what is missing to build, test and try this project on Debian 12, by apt, as root or with sudo; otherwise
# prints the command and stops.
#
#   scripts/setup.sh         what scripts/test.sh and scripts/demo.sh need
#   scripts/setup.sh --all   also the other compilers and tools of .ci/run
set -euo pipefail

packages=(g++ cmake ninja-build ccache pkg-config libcli11-dev nlohmann-json3-dev libmnl-dev googletest
          iproute2 iputils-ping)
if [ "${1:-}" = --all ]; then
    packages+=(clang clang-format clang-tidy liblmdb-dev g++-i686-linux-gnu qemu-user)
fi

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then
    echo "setup: nothing is missing"
    exit 0
fi

run=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null || ! sudo -n true 2>/dev/null; then
        echo "setup: these packages are missing; as root, run:" >&2
        echo "  apt-get install --no-install-recommends ${missing[*]}" >&2
        exit 1
    fi
    run=(sudo)
fi
echo "setup: installing ${missing[*]}"
"${run[@]}" apt-get update -q
"${run[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}"
