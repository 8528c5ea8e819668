#!/usr/bin/env bash
# The main job on real input: a Linux bridge with a VXLAN device and three hosts, in network namespaces of its own; a
# producer publishes what the kernel learns, another what a file says, the agent merges them, and l2rib, another process,
# shows and follows it. A second switch is programmed by a consumer from what the first one learned, and traffic passes
# between them.
# Where namespaces are not allowed, the same road runs on a recorded forwarding table.
set -euo pipefail
cd "$(dirname "$0")/.."

echo "== set-up and build (preset release)"
scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --target l2ribd l2rib-source l2rib-tool l2rib-consumer plugin_event-log plugin_kernel-fdb
bin=$PWD/build/release/bin

root=$(mktemp -d /dev/shm/l2rib-demo.XXXXXX)
name=l2rib-demo-$$
started=()
namespaces=()
cleanup() {
    for pid in "${started[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    for ns in "${namespaces[@]}"; do ip netns del "$ns" 2>/dev/null || true; done
    rm -rf "$root"
}
trap cleanup EXIT

say() { printf '\n== %s\n' "$*"; }
shown() { echo "\$ $*"; "$@" || true; }
l2rib() { "$bin/l2rib" --root "$root" "$@"; }
# Waits until the command succeeds.
eventually() {
    for _ in $(seq 100); do
        if "$@" >/dev/null 2>&1; then return 0; fi
        sleep 0.05
    done
    echo "demo: this did not happen in 5 seconds: $*" >&2
    return 1
}
monitored() { grep -q "$1" "$root/monitor.log"; }

# Each as a direct child of this script: its process id is what is killed. "ip netns exec" becomes the program.
start_agent() {
    "$bin/l2ribd" --root "$root" --fdb none 2>>"$root/agent.log" &
    agent=$!
    started+=("$agent")
}
start_kernel_source() {
    ip netns exec "$name-sw" "$bin/l2rib-source" --root "$root" --vlan br0=10 kernel 2>>"$root/sources.log" &
    kernel_source=$!
    started+=("$kernel_source")
}

start_monitor() {
    "$bin/l2rib" --root "$root" host monitor --current >"$root/monitor.log" &
    started+=($!)
    eventually monitored sync-done
}

if ! ip netns add "$name-sw" 2>/dev/null; then
    say "network namespaces are not allowed here: running on the recorded table examples/fdb/bridge-fdb.json"
    "$bin/l2ribd" --root "$root" --fdb examples/fdb/bridge-fdb.json --vlan br0=10 &
    started+=($!)
    eventually l2rib host show
    shown l2rib host show
    shown l2rib host show source bgp
    start_monitor
    say "what the monitor printed"
    cat "$root/monitor.log"
    exit 0
fi

namespaces+=("$name-sw")
sw() { ip netns exec "$name-sw" "$@"; }
host() { local n=$1; shift; ip netns exec "$name-h$n" "$@"; }
no_ipv6='echo 1 > /proc/sys/net/ipv6/conf/all/disable_ipv6; echo 1 > /proc/sys/net/ipv6/conf/default/disable_ipv6'

say "a switch: bridge br0, VXLAN device vx100 (VNI 100), ports p1 to p3 with a host behind each"
sw sh -c "$no_ipv6" 2>/dev/null || true
sw ip link set lo up
sw ip link add br0 type bridge
sw ip link set br0 up
sw ip link add vx100 type vxlan id 100 local 10.0.0.1 dstport 4789 nolearning
sw ip link set vx100 master br0 up
for n in 1 2 3; do
    ip netns add "$name-h$n"
    namespaces+=("$name-h$n")
    host $n sh -c "$no_ipv6" 2>/dev/null || true
    sw ip link add "p$n" type veth peer name eth0 netns "$name-h$n"
    host $n ip link set eth0 address "02:aa:aa:aa:aa:0$n" up
    host $n ip addr add "192.0.2.$n/24" dev eth0
    sw ip link set "p$n" master br0 up
done
eventually host 1 ping -c1 -W1 192.0.2.2
eventually host 3 ping -c1 -W1 192.0.2.1
echo "the hosts have talked"

say "a producer publishes what the kernel knows, the agent merges it; VLAN 10 stands for br0"
start_agent
start_kernel_source
eventually l2rib host show mac 02:aa:aa:aa:aa:01
start_monitor
shown l2rib host show

say "two remote MACs behind VTEPs, as a BGP daemon would install them"
sw bridge fdb add 02:bb:bb:bb:bb:01 dev vx100 dst 10.0.0.2 self master extern_learn
sw bridge fdb add 02:bb:bb:bb:bb:02 dev vx100 dst 10.0.0.3 self master extern_learn
eventually l2rib host show mac 02:bb:bb:bb:bb:02
shown l2rib host show source bgp

say "unknown traffic of VLAN 10 is to be flooded to both VTEPs"
sw bridge fdb append 00:00:00:00:00:00 dev vx100 dst 10.0.0.2
sw bridge fdb append 00:00:00:00:00:00 dev vx100 dst 10.0.0.3
flooded() { l2rib flood show | grep -q 'vtep 10.0.0.2, vtep 10.0.0.3'; }
eventually flooded
shown l2rib flood show

say "a second source: a file says that 02:bb:bb:bb:bb:02 is behind its MLAG peer, and is preferred"
cat >"$root/peer.json" <<'JSON'
{"source":"mlag","hosts":[
 {"vlan":10,"mac":"02:bb:bb:bb:bb:02","preference":150,"ciDest":{"type":"vtep","address":"10.0.0.9"}}]}
JSON
"$bin/l2rib-source" --root "$root" file "$root/peer.json" 2>>"$root/sources.log" &
file_source=$!
started+=("$file_source")
eventually monitored 'update 10 02:bb:bb:bb:bb:02 mlag vtep 10.0.0.9'
shown l2rib source show
shown l2rib host show mac 02:bb:bb:bb:bb:02
echo "it withdraws itself: the other takes over, in one update"
kill $file_source
eventually monitored 'update 10 02:bb:bb:bb:bb:02 bgp vtep 10.0.0.3'
grep 02:bb:bb:bb:bb:02 "$root/monitor.log"

say "a second switch, VTEP 10.0.0.2, with host 02:bb:bb:bb:bb:01 behind it; its kernel-fdb follows the first one's table"
ip netns add "$name-s2"
namespaces+=("$name-s2")
ip netns add "$name-h4"
namespaces+=("$name-h4")
s2() { ip netns exec "$name-s2" "$@"; }
for ns in s2 h4; do ip netns exec "$name-$ns" sh -c "$no_ipv6" 2>/dev/null || true; done
sw ip link add under type veth peer name under netns "$name-s2"
sw ip addr add 10.0.0.1/24 dev under
sw ip link set under up
s2 ip addr add 10.0.0.2/24 dev under
s2 ip link set under up
s2 ip link add br0 type bridge
s2 ip link set br0 up
s2 ip link add vx100 type vxlan id 100 local 10.0.0.2 dstport 4789 nolearning
s2 ip link set vx100 master br0 up
s2 ip link add p4 type veth peer name eth0 netns "$name-h4"
s2 ip link set p4 master br0 up
host 4 ip link set eth0 address 02:bb:bb:bb:bb:01 up
host 4 ip addr add 192.0.2.4/24 dev eth0
# No broadcast crosses: the two hosts know each other's addresses, only the forwarding tables are missing.
host 4 ip neigh add 192.0.2.2 lladdr 02:aa:aa:aa:aa:02 dev eth0
host 2 ip neigh add 192.0.2.4 lladdr 02:bb:bb:bb:bb:01 dev eth0
if host 4 ping -c1 -W1 192.0.2.2 >/dev/null; then
    echo "demo: the hosts reach each other without an entry" >&2
    exit 1
fi
echo "before: host 4 does not reach host 2"
start_consumer() {
    ip netns exec "$name-s2" "$bin/l2rib-consumer" --root "$root" --plugin-dir "$bin/../plugins" \
        --set L2RIB_KERNEL_FDB=vx100=10 --set L2RIB_KERNEL_FDB_OWN_VTEP=10.0.0.1 \
        --set L2RIB_EVENT_LOG="$root/events" 2>>"$root/consumer.log" &
    started+=($!)
}
start_consumer
eventually host 4 ping -c1 -W1 192.0.2.2
echo "after: host 4 reaches host 2 through the VXLAN tunnel"
shown s2 bridge fdb show dev vx100
echo "\$ head -2 events     # what event-log wrote"
head -2 "$root/events"
shown l2rib reader show l2rib/output/host/host

say "host 02:aa:aa:aa:aa:01 moves from p1 to p3"
host 3 ip link set eth0 address 02:aa:aa:aa:aa:01
host 3 ping -c1 -W1 192.0.2.2 >/dev/null || true
eventually monitored 'update 10 02:aa:aa:aa:aa:01 local-dynamic p3'
shown l2rib host show mac 02:aa:aa:aa:aa:01
shown l2rib host explain vlan 10 mac 02:aa:aa:aa:aa:01

if sw ip nexthop add id 1 via 10.0.0.2 fdb 2>/dev/null; then
    say "host 02:bb:bb:bb:bb:09 is behind two VTEPs: a group of next hops here, a load-balance group in the tables"
    sw ip nexthop add id 2 via 10.0.0.3 fdb
    sw ip nexthop add id 10 group 1/2 fdb
    sw bridge fdb add 02:bb:bb:bb:bb:09 dev vx100 self extern_learn nhid 10
    eventually monitored 'add 10 02:bb:bb:bb:bb:09'
    shown l2rib lb show -d
    sw ip nexthop replace id 10 group 2 fdb
    one_left() { l2rib host show mac 02:bb:bb:bb:bb:09 | grep -q '{10.0.0.3}'; }
    eventually one_left
    shown l2rib host show mac 02:bb:bb:bb:bb:09
fi

say "host 02:aa:aa:aa:aa:02 is removed"
sw bridge fdb del 02:aa:aa:aa:aa:02 dev p2 master
eventually monitored 'delete 10 02:aa:aa:aa:aa:02'
shown l2rib host show mac 02:aa:aa:aa:aa:02
not_programmed() { ! s2 bridge fdb show dev vx100 | grep -q 02:aa:aa:aa:aa:02; }
eventually not_programmed
echo "the second switch has forgotten it, too"

say "the kernel's producer is killed: its hosts stand; it comes back, and nothing has changed for anyone"
lines=$(wc -l <"$root/monitor.log")
kill -9 $kernel_source
wait $kernel_source 2>/dev/null || true
away() { l2rib source show | grep -q 'kernel-bgp .* no '; }
eventually away
shown l2rib source show
start_kernel_source
back() { ! away; }
eventually back
sleep 0.5
[ "$(wc -l <"$root/monitor.log")" = "$lines" ] || { echo "demo: the monitor was told of something" >&2; exit 1; }
shown l2rib host show source bgp

say "the agent is killed: what it published is still there to be read"
kill -9 $agent
wait $agent 2>/dev/null || true
shown l2rib host show source bgp

say "it comes back, and one more remote MAC appears"
start_agent
sw bridge fdb add 02:bb:bb:bb:bb:03 dev vx100 dst 10.0.0.2 self master extern_learn
eventually monitored 'add 10 02:bb:bb:bb:bb:03'
shown l2rib -j host show mac 02:bb:bb:bb:bb:03

say "what the monitor, running all the while in a process of its own, printed"
cat "$root/monitor.log"
say "what the agent printed"
cat "$root/agent.log"
say "what the producers printed"
cat "$root/sources.log"
