#!/usr/bin/env bash
# Prints the lines of test code (tests/) against the lines of the code they
# test (src/, bench/ and fuzz/), counting the lines of *.cc and *.h files that
# are neither blank nor a whole-line // comment, and exits 1 when the tests are
# more than 0.40 of the code.
set -euo pipefail
cd "$(dirname "$0")/.."

# The goal as a fraction in hundredths: tests may be at most 40/100 of the code.
goal_pct=40

# lines DIR: the lines of code of the *.cc and *.h files under DIR (0 when none).
lines() {
  [[ -d $1 ]] || { echo 0; return; }
  find "$1" -type f \( -name '*.cc' -o -name '*.h' \) -print0 | xargs -0 -r cat |
    sed -e 's/^[[:space:]]*//' | grep -c -v -e '^$' -e '^//' || true
}

src=$(lines src)
bench=$(lines bench)
fuzz=$(lines fuzz)
tests=$(lines tests)
code=$((src + bench + fuzz))
if ((code == 0)); then
  echo "no code under src/, bench/ or fuzz/" >&2
  exit 2
fi

ratio=$(awk -v t="$tests" -v c="$code" 'BEGIN { printf "%.2f", t / c }')
allowed=$((code * goal_pct / 100))
echo "code $code lines (src $src, bench $bench, fuzz $fuzz); tests $tests lines;" \
  "ratio $ratio (goal <= 0.$goal_pct, at most $allowed test lines)"
# Integer comparison, so that a ratio printed as 0.40 but above it still fails.
((tests * 100 <= code * goal_pct)) || exit 1
