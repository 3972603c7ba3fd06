#!/usr/bin/env bash
# Builds everything and runs every test: the normal build (GCC), a 30-second soak of a lab
# ring of three switches, and the AddressSanitizer/UndefinedBehaviorSanitizer build (clang);
# then every libFuzzer target for 20 seconds from its seed corpus.
set -euo pipefail
cd "$(dirname "$0")"
scripts/install-deps.sh
echo "== format"
scripts/check-format.sh

jobs=${JOBS:-2}
echo "== build (gcc, RelWithDebInfo)"
cmake -G Ninja -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build -j"$jobs"
echo "== tests"
ctest --test-dir build --output-on-failure -j"$jobs"

echo "== a 30-second soak of a ring of three switches (vornlab)"
lab=$(mktemp -d /tmp/vorn-soak.XXXXXX)
trap 'build/src/vornlab --dir "$lab/lab" down >/dev/null 2>&1 || true; rm -rf "$lab"' EXIT
build/src/vornlab --dir "$lab/lab" up 3
build/src/vornlab --dir "$lab/lab" --seconds 30 soak
build/src/vornlab --dir "$lab/lab" down
trap - EXIT
rm -rf "$lab"

echo "== build (clang, ASan + UBSan)"
CC=clang CXX=clang++ cmake -G Ninja -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug \
  -DVORN_SANITIZE=ON -DVORN_BENCH=OFF >/dev/null
ninja -C build-asan -j"$jobs"
echo "== tests under the sanitizers"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan --output-on-failure -j"$jobs"

echo "== fuzz targets, 20 seconds each"
JOBS=$jobs scripts/fuzz.sh 20
