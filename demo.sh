#!/usr/bin/env bash
# Builds everything, starts a simulated chassis (vornsim, which starts vornd) on a fresh run
# directory, brings up two ports with their VLANs, configures ring 5 through vornctl, shows
# the ring as the operator sees it (show vorn ring 5, show vorn ring summary) and as the agent
# of its secondary's card runs it, what L2PM was told, breaks and heals the ring, debugs and
# clears its counters, takes that card down and up again, and stops the chassis.
set -euo pipefail
cd "$(dirname "$0")"
scripts/install-deps.sh
cmake -G Ninja -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build -j"${JOBS:-2}"

rundir=$(mktemp -d /tmp/vorn-demo-XXXXXX)
bin=build/src
"$bin/vornsim" --rundir "$rundir/run" >"$rundir/vornsim.log" 2>&1 &
sim=$!
trap 'kill $sim 2>/dev/null; wait $sim 2>/dev/null; rm -rf "$rundir"' EXIT

run() { echo "\$ vornctl $*"; "$bin/vornctl" --rundir "$rundir/run" "$@"; echo; }
for _ in $(seq 1 100); do
  "$bin/vornctl" --rundir "$rundir/run" shell vornPrintCounters 2>/dev/null |
    grep -q "L2PM reg success *1" && break
  sleep 0.1
done

echo "== the chassis: VLAN 10 and 20-30 on Gi 0/1 and Gi 1/1, both ports up"
run sim vlan 10 add Gi 0/1 tagged
run sim vlan 10 add Gi 1/1 tagged
run sim vlan 20-30 add Gi 0/1 tagged
run sim vlan 20-30 add Gi 1/1 tagged
run sim port Gi 0/1 up
run sim port Gi 1/1 up

echo "== ring 5, configured from a file"
cat >"$rundir/ring5.cfg" <<'CFG'
protocol vorn 5
 interface primary GigabitEthernet 0/1 secondary Gi 1/1 control-vlan 10
 member-vlan 20-30
 mode master
 timer hello-interval 300
 description demo ring
 no disable
CFG
cat "$rundir/ring5.cfg"
run -f "$rundir/ring5.cfg"
run show running-config
sleep 0.3
echo "== the agent of slot 1 runs ring 5 as master: its secondary blocks the member VLANs"
run sim show agents
echo "== what the operator sees of the rings"
run show vorn ring 5
run show vorn ring summary
run --json show vorn ring summary
run shell vornPrintRing 5
echo "== what L2PM was told"
run sim show l2pm
echo "== the primary's link goes down: the master unblocks its secondary and flushes it"
run sim port Gi 0/1 down
sleep 0.3
run sim show agents
run sim show l2pm
run sim port Gi 0/1 up
sleep 0.3
echo "== the agent counted the link going down and up; debugging and clearing reach it too"
run show vorn ring 5
run debug vorn ring 5 packet rx count 100
run show debugging
run clear vorn counters ring 5
run show vorn ring 5
run undebug all
run show debugging
echo "== card 1 goes down: no other card can run ring 5, the manager takes its ports"
run sim card down 1
sleep 0.3
run shell vornPrintRing 5
echo "== card 1 comes back: a fresh agent registers, gets everything and runs the ring again"
run sim card up 1
sleep 0.5
run sim show agents
run shell vornPrintCounters
echo "== what the simulator did"
cat "$rundir/vornsim.log"
