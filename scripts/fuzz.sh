#!/usr/bin/env bash
# Builds the fuzz targets with clang and libFuzzer and runs each for the given number of
# seconds (default 60) from its seed corpus in fuzz/corpus/<target>/, with the dictionary
# fuzz/<target>.dict where there is one. Names after the seconds run only those targets
# (e.g. `scripts/fuzz.sh 120 agent_msgs_fuzz`). The build and the working corpora live in
# $FUZZ_BUILD (default build-fuzz, used by nothing else); crashes are kept in
# $FUZZ_BUILD/crashes/<target>/. Exits non-zero when any target found a crash, a leak or
# any sanitizer report (UndefinedBehaviorSanitizer's reports stop the target too).
set -euo pipefail
cd "$(dirname "$0")/.."
secs=${1:-60}
shift $(( $# > 0 ? 1 : 0 ))
build=${FUZZ_BUILD:-build-fuzz}
if [ $# -gt 0 ]; then
  targets=("$@")
else
  targets=($(cd fuzz && ls *_fuzz.cc | sed 's/\.cc$//'))
fi
for name in "${targets[@]}"; do
  [ -f "fuzz/$name.cc" ] || { echo "no fuzz target fuzz/$name.cc" >&2; exit 2; }
done
scripts/install-deps.sh
CC=clang CXX=clang++ cmake -G Ninja -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVORN_FUZZ=ON -DVORN_BENCH=OFF >/dev/null
ninja -C "$build" -j"${JOBS:-2}" "${targets[@]}"
status=0
for name in "${targets[@]}"; do
  corpus=$build/corpus/$name
  crashes=$build/crashes/$name
  mkdir -p "$corpus" "$crashes"
  [ -d "fuzz/corpus/$name" ] && cp -n fuzz/corpus/"$name"/* "$corpus"/ 2>/dev/null || true
  dict=()
  [ -f "fuzz/$name.dict" ] && dict=(-dict="fuzz/$name.dict")
  echo "== $name for ${secs}s"
  if ! UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 "$build"/fuzz/"$name" \
       -max_total_time="$secs" -max_len=8192 "${dict[@]}" -artifact_prefix="$crashes/" \
       -print_final_stats=1 "$corpus" 2>"$build/$name.log"; then
    echo "$name: crash, see $crashes and $build/$name.log"
    status=1
  fi
  grep -E "stat::number_of_executed_units|stat::peak_rss_mb" "$build/$name.log" || true
done
exit $status
