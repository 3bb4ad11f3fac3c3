"""The fault harness behind scripts/mutants.sh (usage and what it reports: see there).

Run from the repository's root: scripts/mutants.py [--check] [-o FILE] [-r REV] [-x REGEX] [ID...]
"""
import hashlib, io, os, re, subprocess, sys, tarfile, time

args = sys.argv[1:]
out_file = rev = leave_out = None
check = False
while args[:1] in (["-o"], ["-r"], ["-x"], ["--check"]):
    if args[0] == "--check":
        check = True
        args = args[1:]
        continue
    if args[0] == "-o":
        out_file = args[1]
    elif args[0] == "-x":
        leave_out = args[1]
    else:
        rev = args[1]
    args = args[2:]
only = set(args)
src = "build/mutants/src"


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

faults = []
for number, line in enumerate(open("scripts/mutants.txt", encoding="utf-8"), 1):
    if not line.strip() or line.startswith("#"):
        continue
    fields = [f.strip() for f in line.rstrip("\n").split(" @@ ")]
    if len(fields) == 5:
        fields.append("release")
    if len(fields) != 6 or fields[5] not in ("release", "asan"):
        sys.exit(f"scripts/mutants.txt:{number}: expected 5 fields separated by ' @@ ', "
                 "and optionally a sixth: release or asan")
    fid, path, find, repl, what, preset = fields
    if not only or fid in only:
        faults.append((fid, path, find.replace("{NL}", "\n"), repl.replace("{NL}", "\n"),
                       what, preset))
unknown = only - {fault[0] for fault in faults}
if unknown:
    sys.exit("no such fault in scripts/mutants.txt: " + " ".join(sorted(unknown)))

# --check: every fault's text must stand exactly once in its file; nothing is built.
if check:
    seen, wrong = set(), 0
    for fid, path, find, repl, what, preset in faults:
        count = content(path).decode("utf-8").count(find) if path in tree else 0
        problem = ("id used twice" if fid in seen else f"found {count} times" if count != 1 else
                   "the replacement equals the text" if repl == find else "")
        if problem:
            wrong += 1
            print(f"{fid} {path}: {problem}")
        seen.add(fid)
    print(f"{len(faults)} faults, {wrong} wrong")
    sys.exit(1 if wrong else 0)

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
# The tools that setup.sh installs beside the tree for the tests (ignored by git), linked in.
for installed in ["tests/validators/node_modules"]:
    link = os.path.join(src, installed)
    if os.path.isdir(installed) and not os.path.islink(link):
        os.symlink(os.path.abspath(installed), link)


def build_tree(preset):
    if not os.path.exists(os.path.join(src, "build", preset, "build.ninja")):
        r = run(["cmake", "--preset", preset, "-G", "Ninja", "-DFORMATV2_WERROR=OFF"])
        if r.returncode:
            sys.exit(r.stdout)
    return run(["cmake", "--build", f"build/{preset}", "-j2"])


def failing_tests(preset):
    timeout = "600" if preset == "asan" else "120"
    r = run(["ctest", "--test-dir", f"build/{preset}", "-j2", "--timeout", timeout] +
            (["-E", leave_out] if leave_out else []))
    tail = r.stdout.partition("tests FAILED:")[2]
    return re.findall(r"^\s*\d+ - (\S+) \(", tail, re.M)


def stamp(path):
    return os.stat(path).st_mtime_ns, hashlib.sha1(open(path, "rb").read()).digest()


def objects_of(preset, path):
    """Each file built from path or including it (objects, or what a link input links): its
    mtime and hash."""
    r = run(["ninja", "-C", f"build/{preset}", "-t", "deps"])
    here, dirname, found = os.path.abspath(os.path.join(src, path)), os.path.join(src, "build",
                                                                                   preset), {}
    obj = None
    for line in r.stdout.splitlines():
        if line and not line.startswith(" "):
            obj = os.path.join(dirname, line.split(":")[0])
        elif obj and os.path.exists(obj) and os.path.abspath(os.path.join(dirname,
                                                                          line.strip())) == here:
            found[obj] = stamp(obj)
    # A file that only reaches the link (a version script) is an input of what it links.
    r = run(["ninja", "-C", f"build/{preset}", "-t", "query", here])
    for name in r.stdout.partition("outputs:")[2].split():
        out = os.path.join(dirname, name)
        if os.path.isfile(out) and out not in found:
            found[out] = stamp(out)
    return found


ready, baseline = set(), {}


def plant(preset, target, original, find, repl, clean=False):
    """Plants the fault, builds and tests: (suites, golden, note)."""
    if preset not in ready:
        r = build_tree(preset)
        if r.returncode:
            sys.exit(f"the unchanged copy does not build ({preset}):\n" + r.stdout[-3000:])
        failed = failing_tests(preset)
        if failed:
            sys.exit(f"the unchanged copy fails tests ({preset}): " + " ".join(failed))
        ready.add(preset)
        for root, _, names in os.walk(os.path.join(src, "build", preset)):
            for name in names:
                if name.endswith(".o"):
                    obj = os.path.join(root, name)
                    baseline[obj] = hashlib.sha1(open(obj, "rb").read()).digest()
    if clean:
        run(["cmake", "--build", f"build/{preset}", "--target", "clean"])
    open(target, "w", encoding="utf-8").write(original.replace(find, repl))
    planted = os.stat(target).st_mtime_ns
    try:
        if build_tree(preset).returncode:
            return "BUILD FAILED", "", ""
        after = objects_of(preset, os.path.relpath(target, src))
        if not after or any(t < planted for t, _ in after.values()):
            return "NOT REBUILT", "", ""
        same = all(h == baseline.get(o) for o, (_, h) in after.items())
        note = "same object code as unplanted" if same else ""
        failed = failing_tests(preset)
    finally:
        open(target, "w", encoding="utf-8").write(original)
    suites = ", ".join(t for t in failed if not t.startswith("golden.")) or "SURVIVED"
    golden = ", ".join(t[7:] for t in failed if t.startswith("golden."))
    return suites, golden, note


rows, bad = [], 0
for fid, path, find, repl, what, preset in faults:
    target = os.path.join(src, path)
    original = open(target, encoding="utf-8").read() if os.path.exists(target) else ""
    started = time.time()
    note = ""
    if original.count(find) != 1:
        suites, golden = f"NOT APPLIED (found {original.count(find)} times)", ""
    else:
        suites, golden, note = plant(preset, target, original, find, repl)
        if suites == "SURVIVED":
            suites, golden, note = plant(preset, target, original, find, repl, clean=True)
            note = "; ".join(n for n in (note, "planted again on a clean build") if n)
    bad += suites in ("SURVIVED", "BUILD FAILED", "NOT REBUILT") or suites.startswith("NOT APP")
    if preset != "release":
        note = "; ".join(n for n in (f"{preset} build", note) if n)
    shown = suites + (f" ({note})" if note else "")
    rows.append(f"| {fid} | `{path}` | {what} | {shown} | {golden} |")
    print(f"{fid} {path}: {shown}" + (f" | golden: {golden}" if golden else "") +
          f" ({time.time() - started:.0f} s)", file=sys.stderr, flush=True)

table = "\n".join(["| id | file | fault | caught by (C++ suites) | golden examples |",
                   "|---|---|---|---|---|"] + rows) + "\n"
if leave_out:
    table += f"\nTests left out (ctest -E): `{leave_out}`.\n"
print(table)
if out_file:
    open(out_file, "w", encoding="utf-8").write(table)
sys.exit(1 if bad else 0)
