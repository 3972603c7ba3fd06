#!/usr/bin/env bash
# Builds the fuzz targets with clang and libFuzzer and runs each for the given number of
# seconds (default 60) from its seed corpus in fuzz/corpus/<target>/. Crashes are kept in
# build-fuzz/crashes/<target>/. Exits non-zero when any target found a crash.
set -euo pipefail
cd "$(dirname "$0")/.."
secs=${1:-60}
scripts/install-deps.sh
CC=clang CXX=clang++ cmake -G Ninja -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVORN_FUZZ=ON -DVORN_BENCH=OFF >/dev/null
ninja -C build-fuzz -j"${JOBS:-2}" $(cd fuzz && ls *_fuzz.cc | sed 's/\.cc$//')
status=0
for src in fuzz/*_fuzz.cc; do
  name=$(basename "$src" .cc)
  corpus=build-fuzz/corpus/$name
  crashes=build-fuzz/crashes/$name
  mkdir -p "$corpus" "$crashes"
  [ -d "fuzz/corpus/$name" ] && cp -n fuzz/corpus/"$name"/* "$corpus"/ 2>/dev/null || true
  echo "== $name for ${secs}s"
  if ! build-fuzz/fuzz/"$name" -max_total_time="$secs" -max_len=8192 \
       -artifact_prefix="$crashes/" -print_final_stats=1 "$corpus" 2>build-fuzz/"$name".log; then
    echo "$name: crash, see $crashes and build-fuzz/$name.log"
    status=1
  fi
  grep -E "stat::number_of_executed_units|stat::peak_rss_mb" build-fuzz/"$name".log || true
done
exit $status
