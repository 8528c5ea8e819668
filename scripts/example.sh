#!/usr/bin/env bash
# Builds examples/consumer against an installation of a build, as someone outside this project would, and runs it on a
# recorded forwarding table.
#
#   scripts/example.sh BUILD      a build directory, such as build/dev
set -euo pipefail
build=$(realpath "$1")
cd "$(dirname "$0")/.."
dir=$(mktemp -d "${TMPDIR:-/tmp}/l2rib-example.XXXXXX")
root=$(mktemp -d /dev/shm/l2rib-example.XXXXXX)
started=()
cleanup() {
    for pid in "${started[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$dir" "$root"
}
trap cleanup EXIT

cmake --install "$build" --prefix "$dir/prefix" >"$dir/install.log"
cmake -S examples/consumer -B "$dir/build" -DCMAKE_PREFIX_PATH="$dir/prefix" >"$dir/configure.log"
cmake --build "$dir/build"

"$dir/prefix/bin/l2ribd" --root "$root" --fdb examples/fdb/bridge-fdb.json --vlan br0=10 2>"$dir/agent.log" &
started+=($!)
"$dir/prefix/bin/l2rib-consumer" --root "$root" --plugin-dir "$dir/build" --plugins printer >"$dir/printed" &
started+=($!)
for _ in $(seq 200); do
    if [ "$(wc -l <"$dir/printed")" -ge 3 ]; then break; fi
    sleep 0.05
done
sort "$dir/printed"
diff <(sort "$dir/printed") - <<'EXPECTED'
add 02:00:00:00:01:01/10 sourceBgp
add 02:00:00:00:01:03/10 sourceVxlanStatic
add 02:00:00:00:01:04/10 sourceVxlanStatic
EXPECTED
