"""Line and branch coverage per folder from the two gcovr summaries scripts/coverage.sh writes
(build/coverage/summary.json without exception-only and unreachable branches,
build/coverage/summary-all.json with every branch).

usage: scripts/coverage_summary.py FOLDER...  (from the repository's root)
"""
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
