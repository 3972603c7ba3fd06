#!/usr/bin/env bash
# Builds the fuzz targets with clang and libFuzzer and runs each for the given number of
# seconds (default 60) from its seed corpus in fuzz/corpus/<target>/, with the dictionary
# fuzz/<target>.dict where there is one. Names after the seconds run only those targets
# (e.g. `scripts/fuzz.sh 120 agent_msgs_fuzz`). $JOBS (default 2) is both the build's
# parallelism and how many targets run at a time. The build and the working corpora live in
# $FUZZ_BUILD (default build-fuzz, used by nothing else); crashes are kept in
# $FUZZ_BUILD/crashes/<target>/, each target's output in $FUZZ_BUILD/<target>.log. Exits
# non-zero when any target found a crash, a leak or any sanitizer report
# (UndefinedBehaviorSanitizer's reports stop the target too).
set -euo pipefail
cd "$(dirname "$0")/.."
secs=${1:-60}
shift $(( $# > 0 ? 1 : 0 ))
build=${FUZZ_BUILD:-build-fuzz}
jobs=${JOBS:-2}
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
ninja -C "$build" -j"$jobs" "${targets[@]}"

# Runs one target; its status says whether it found anything.
run() {
  local name=$1 corpus=$build/corpus/$1 crashes=$build/crashes/$1 dict=()
  mkdir -p "$corpus" "$crashes"
  [ -d "fuzz/corpus/$name" ] && cp -n fuzz/corpus/"$name"/* "$corpus"/ 2>/dev/null || true
  [ -f "fuzz/$name.dict" ] && dict=(-dict="fuzz/$name.dict")
  UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 "$build"/fuzz/"$name" \
    -max_total_time="$secs" -max_len=8192 "${dict[@]}" -artifact_prefix="$crashes/" \
    -print_final_stats=1 "$corpus" >"$build/$name.log" 2>&1
}

echo "== ${#targets[@]} targets for ${secs}s each, $jobs at a time"
declare -A pid rc
# Waits for a target once and keeps its status.
reap() {
  [ -n "${rc[$1]:-}" ] && return
  rc[$1]=0
  wait "${pid[$1]}" || rc[$1]=$?
}
for i in "${!targets[@]}"; do
  # A place frees when the target started $jobs places before this one ends.
  [ "$i" -ge "$jobs" ] && reap "${targets[$((i - jobs))]}"
  run "${targets[$i]}" &
  pid[${targets[$i]}]=$!
done
status=0
for name in "${targets[@]}"; do
  reap "$name"
  if [ "${rc[$name]}" -eq 0 ]; then
    echo "$name: $(grep -hoE 'number_of_executed_units: *[0-9]+|peak_rss_mb: *[0-9]+' \
      "$build/$name.log" | tr -s ' \n' ' ')"
  else
    echo "$name: FOUND A PROBLEM, see $build/crashes/$name and $build/$name.log"
    grep -m3 -E "ERROR|runtime error|SUMMARY" "$build/$name.log" || true
    status=1
  fi
done
exit $status
