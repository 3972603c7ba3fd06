#!/usr/bin/env bash
# Builds everything, starts a simulated chassis with the manager on a fresh run directory,
# shows the manager's counters after start-up, and stops the chassis.
set -euo pipefail
cd "$(dirname "$0")"
scripts/install-deps.sh
cmake -G Ninja -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build -j"${JOBS:-2}"

rundir=$(mktemp -d /tmp/vorn-demo-XXXXXX)
bin=build/src
echo "== starting vornsim (and vornd) on $rundir"
"$bin/vornsim" --rundir "$rundir" >"$rundir/vornsim.log" 2>&1 &
sim=$!
trap 'kill $sim 2>/dev/null; wait $sim 2>/dev/null; rm -rf "$rundir"' EXIT

ctl() { "$bin/vornctl" --rundir "$rundir" "$@"; }
for _ in $(seq 1 100); do
  if ctl shell vornPrintCounters 2>/dev/null | grep -q "L2PM reg success   *1"; then break; fi
  sleep 0.1
done
echo "== what the simulator did"
cat "$rundir/vornsim.log"
echo "== vornctl shell vornPrintCounters"
ctl shell vornPrintCounters
echo "== vornctl shell qelMemShow"
ctl shell qelMemShow
