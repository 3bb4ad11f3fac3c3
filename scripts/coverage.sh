#!/usr/bin/env bash
# Line and branch coverage of the module's folders and the lint's (analysis/) under the ordinary
# test suite (which also replays the committed fuzz seeds and regression inputs), plus a replay
# of the working corpora that long fuzz runs grew (build/fuzz/corpus/<target>, scripts/fuzz.sh
# -k), when present. Builds the "coverage" preset (gcc --coverage, -O0) in build/coverage.
#
# Two branch figures per folder: all branches gcov counts, and those left when the branches
# that only exception handling adds and those the compiler marks unreachable are excluded
# (gcovr --exclude-throw-branches --exclude-unreachable-branches). The annotated sources of
# the second are in build/coverage/html/index.html.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh >/dev/null
cmake --preset coverage >/dev/null
cmake --build --preset coverage -j "$(nproc)"
find build/coverage -name '*.gcda' -delete
ctest --preset coverage -j "$(nproc)"

for target in config format runs; do
  if [ -d "build/fuzz/corpus/${target}" ]; then
    build/coverage/tests/fuzz_regressions/fuzz_replay "${target}" "build/fuzz/corpus/${target}"
  fi
done

folders=(contract config format publish assembly analysis formatv2 log)
filter="^($(IFS='|'; echo "${folders[*]}"))/"
common=(--root . --object-directory build/coverage --filter "${filter}"
        --exclude-directories '.*/CMakeFiles/[0-9.]+')
gcovr "${common[@]}" --json-summary build/coverage/summary-all.json
mkdir -p build/coverage/html
gcovr "${common[@]}" --exclude-throw-branches --exclude-unreachable-branches \
      --json-summary build/coverage/summary.json --html-details build/coverage/html/index.html

python3 scripts/coverage_summary.py "${folders[@]}"
