#!/usr/bin/env bash
# A table written by the 64-bit build is read by the 32-bit one, and the other way round, byte for byte.
# Needs both builds: presets dev and x86-32.
set -euo pipefail
cd "$(dirname "$0")/.."

peer64=(build/dev/bin/l2rib-test-peer)
peer32=(qemu-i386 -L /usr/i686-linux-gnu build/x86-32/bin/l2rib-test-peer)
root=$(mktemp -d /dev/shm/l2rib-cross.XXXXXX)
writer=
trap '[ -z "$writer" ] || kill "$writer" 2>/dev/null; rm -rf "$root"' EXIT

check() {  # writer and reader, as names of the arrays above
    local -n write=$1 read=$2
    "${write[@]}" fill "$root/$1" 3000 >"$root/log" &
    writer=$!
    for _ in $(seq 200); do grep -q ready "$root/log" && break; sleep 0.05; done
    "${read[@]}" dump "$root/$1" | sort >"$root/read"
    "${write[@]}" dump "$root/$1" | sort >"$root/own"
    kill "$writer"
    wait "$writer" 2>/dev/null || true
    writer=
    [ "$(wc -l <"$root/read")" -eq 3000 ]
    cmp "$root/read" "$root/own"
    echo "cross-read: 3000 hosts written by $1, read by $2: alike"
}
check peer64 peer32
check peer32 peer64
