#!/usr/bin/env bash
# Line and branch coverage of the module's folders under the ordinary test suite (which also
# replays the committed fuzz seeds and regression inputs), plus a replay of the working
# corpora that long fuzz runs grew (build/fuzz/corpus/<target>, scripts/fuzz.sh -k), when
# present. Builds the "coverage" preset (gcc --coverage, -O0) in build/coverage.
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

folders=(config format publish assembly formatv2 log)
filter="^($(IFS='|'; echo "${folders[*]}"))/"
common=(--root . --object-directory build/coverage --filter "${filter}"
        --exclude-directories '.*/CMakeFiles/[0-9.]+')
gcovr "${common[@]}" --json-summary build/coverage/summary-all.json
mkdir -p build/coverage/html
gcovr "${common[@]}" --exclude-throw-branches --exclude-unreachable-branches \
      --json-summary build/coverage/summary.json --html-details build/coverage/html/index.html

python3 - "${folders[@]}" <<'EOF'
import json, sys

def by_folder(path):
    totals = {}
    for f in json.load(open(path))["files"]:
        t = totals.setdefault(f["filename"].split("/")[0], [0, 0, 0, 0])
        t[0] += f["line_covered"]; t[1] += f["line_total"]
        t[2] += f["branch_covered"]; t[3] += f["branch_total"]
    return totals

def pct(a, b):
    return f"{100.0 * a / b:5.1f}% ({a}/{b})" if b else "    -"

raw = by_folder("build/coverage/summary-all.json")
net = by_folder("build/coverage/summary.json")
print(f"{'folder':10} {'lines':22} {'branches':22} {'branches, all':22}")
for folder in sys.argv[1:]:
    r, n = raw.get(folder, [0] * 4), net.get(folder, [0] * 4)
    print(f"{folder:10} {pct(n[0], n[1]):22} {pct(n[2], n[3]):22} {pct(r[2], r[3]):22}")
EOF
