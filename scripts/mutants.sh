#!/usr/bin/env bash
# Fault harness: plants each fault of scripts/mutants.txt alone in a scratch copy of the tree
# (build/mutants/src, the files git tracks or would track, as they are in the working tree),
# rebuilds the release preset there incrementally (Ninja, -j2, warnings not fatal), runs the
# whole test suite and records every test that fails. The real tree is never changed.
#
#   scripts/mutants.sh [-o FILE] [-r REV] [ID...]
#     -o FILE  also write the table to FILE (Markdown)
#     -r REV   the tree of commit REV instead of the working tree (for a "before" table)
#     ID       only these faults (default: all)
#
# Per fault the table gives the tests that caught it: the C++ suites (GoogleTest and the fuzz
# replay) and, apart, the example golden tests; SURVIVED when none failed, NOT APPLIED when
# the text to find is missing or not unique, BUILD FAILED when the fault does not compile.
# The unchanged copy must pass every test first. Exits 1 when a fault survives or is not
# applied.
set -euo pipefail
cd "$(dirname "$0")/.."
exec python3 - "$@" <<'EOF'
import io, os, re, subprocess, sys, tarfile, time

args = sys.argv[1:]
out_file = rev = None
while args[:1] in (["-o"], ["-r"]):
    if args[0] == "-o":
        out_file = args[1]
    else:
        rev = args[1]
    args = args[2:]
only = set(args)
src = "build/mutants/src"
build = os.path.join(src, "build/release")


def run(cmd, cwd=src):
    return subprocess.run(cmd, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, errors="replace")


# The copy: every file git tracks (or would track) as it is now, or as commit REV has it;
# only changed files are written, so the build stays incremental; stale files are removed.
if rev:
    archive = subprocess.run(["git", "archive", "--format=tar", rev], stdout=subprocess.PIPE,
                             check=True).stdout
    tar = tarfile.open(fileobj=io.BytesIO(archive))
    tree = {m.name: m for m in tar if m.isfile()}
    content = lambda f: tar.extractfile(tree[f]).read()
    mode = lambda f: tree[f].mode
else:
    listed = subprocess.run(["git", "ls-files", "-z", "-co", "--exclude-standard"],
                            stdout=subprocess.PIPE, check=True).stdout.decode().split("\0")
    tree = {f for f in listed if f and os.path.isfile(f)}
    content = lambda f: open(f, "rb").read()
    mode = lambda f: os.stat(f).st_mode
files = set(tree)
for f in files:
    data = content(f)
    target = os.path.join(src, f)
    if not os.path.exists(target) or open(target, "rb").read() != data:
        os.makedirs(os.path.dirname(target) or ".", exist_ok=True)
        open(target, "wb").write(data)
        os.chmod(target, mode(f))
for root, dirs, names in os.walk(src):
    if root == src and "build" in dirs:
        dirs.remove("build")
    for name in names:
        path = os.path.join(root, name)
        if os.path.relpath(path, src) not in files:
            os.remove(path)

faults = []
for number, line in enumerate(open("scripts/mutants.txt", encoding="utf-8"), 1):
    if not line.strip() or line.startswith("#"):
        continue
    fields = [f.strip() for f in line.rstrip("\n").split(" @@ ")]
    if len(fields) != 5:
        sys.exit(f"scripts/mutants.txt:{number}: expected 5 fields separated by ' @@ '")
    fid, path, find, repl, what = fields
    if not only or fid in only:
        faults.append((fid, path, find.replace("{NL}", "\n"), repl.replace("{NL}", "\n"), what))


def build_tree():
    if not os.path.exists(os.path.join(build, "build.ninja")):
        r = run(["cmake", "--preset", "release", "-G", "Ninja", "-DFORMATV2_WERROR=OFF"])
        if r.returncode:
            sys.exit(r.stdout)
    return run(["cmake", "--build", "build/release", "-j2"])


def failing_tests():
    r = run(["ctest", "--test-dir", "build/release", "-j2", "--timeout", "120"])
    tail = r.stdout.partition("tests FAILED:")[2]
    return re.findall(r"^\s*\d+ - (\S+) \(", tail, re.M)


r = build_tree()
if r.returncode:
    sys.exit("the unchanged copy does not build:\n" + r.stdout[-3000:])
failed = failing_tests()
if failed:
    sys.exit("the unchanged copy fails tests: " + " ".join(failed))

rows, bad = [], 0
for fid, path, find, repl, what in faults:
    target = os.path.join(src, path)
    original = open(target, encoding="utf-8").read() if os.path.exists(target) else ""
    started = time.time()
    if original.count(find) != 1:
        suites, golden = f"NOT APPLIED (found {original.count(find)} times)", ""
    else:
        open(target, "w", encoding="utf-8").write(original.replace(find, repl))
        try:
            if build_tree().returncode:
                suites, golden = "BUILD FAILED", ""
            else:
                failed = failing_tests()
                suites = ", ".join(t for t in failed if not t.startswith("golden.")) or "SURVIVED"
                golden = ", ".join(t[7:] for t in failed if t.startswith("golden."))
        finally:
            open(target, "w", encoding="utf-8").write(original)
    bad += suites in ("SURVIVED", "BUILD FAILED") or suites.startswith("NOT APPLIED")
    rows.append(f"| {fid} | `{path}` | {what} | {suites} | {golden} |")
    print(f"{fid} {path}: {suites}" + (f" | golden: {golden}" if golden else "") +
          f" ({time.time() - started:.0f} s)", file=sys.stderr, flush=True)

table = "\n".join(["| id | file | fault | caught by (C++ suites) | golden examples |",
                   "|---|---|---|---|---|"] + rows) + "\n"
print(table)
if out_file:
    open(out_file, "w", encoding="utf-8").write(table)
sys.exit(1 if bad else 0)
EOF
