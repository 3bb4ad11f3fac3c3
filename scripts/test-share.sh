#!/usr/bin/env bash
# The share of test code in the C and C++ sources that git tracks: lines that are neither
# blank nor only a // comment, in .c .cc .cpp .h .hpp files. T counts tests/ and fuzz/, C
# everything else (the module, the stand-in host, tools, benchmarks).
#   scripts/test-share.sh [-v]    -v: the count of every file as well
set -euo pipefail
cd "$(dirname "$0")/.."

count() { grep -cvE '^[[:space:]]*(//.*)?$' "$1" || true; }

t=0
c=0
while IFS= read -r file; do
  [ -f "${file}" ] || continue  # deleted in the working tree
  n=$(count "${file}")
  case "${file}" in
    tests/* | fuzz/*) t=$((t + n)); side=T ;;
    *) c=$((c + n)); side=C ;;
  esac
  if [ "${1:-}" = "-v" ]; then printf '%s %6d  %s\n' "${side}" "${n}" "${file}"; fi
done < <(git ls-files -- '*.c' '*.cc' '*.cpp' '*.h' '*.hpp')

awk -v t="${t}" -v c="${c}" 'BEGIN { printf "T=%d C=%d share=%.1f%%\n", t, c, 100 * t / (t + c) }'
