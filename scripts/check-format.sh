#!/usr/bin/env bash
# Checks that every C++ file of the project is formatted as .clang-format says. Lists the
# files that differ and exits 1 when there is one; `scripts/check-format.sh --fix` formats
# them in place instead.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files 'src/*.cc' 'src/*.h' 'tests/*.cc' 'tests/*.h' \
                                  'bench/*.cc' 'bench/*.h' 'fuzz/*.cc' 'fuzz/*.h')
if [ "${1:-}" = "--fix" ]; then
  clang-format -i "${files[@]}"
  exit 0
fi
bad=()
for f in "${files[@]}"; do
  clang-format --dry-run -Werror "$f" >/dev/null 2>&1 || bad+=("$f")
done
if [ ${#bad[@]} -gt 0 ]; then
  echo "these files differ from .clang-format (scripts/check-format.sh --fix formats them):"
  printf '  %s\n' "${bad[@]}"
  exit 1
fi
echo "format: ${#files[@]} files as .clang-format says"
