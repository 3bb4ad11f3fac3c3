"""Checks of what the device gets.

  check_package.py needs READELF MODULE DATA
      DATA (cmake/device-needs.json) names exactly the libraries the module needs and the
      highest symbol version it asks of each (GLIBC_, GLIBCXX_, CXXABI_, GCC_)
  check_package.py floor READELF PACKAGE_DIR VERSION ARCH DATA
      no ELF file in the ARCH (armhf, amd64) .deb packages asks for a symbol version newer than
      DATA's floor; prints the newest version each file asks for
  check_package.py content READELF PACKAGE_DIR VERSION ARCH DEFAULT_CONFIG
      the module tarball holds a stripped module for ARCH exporting the entry points and the
      default configuration, and no libalgo.so; the runner's tarball keeps its stand-in in a
      private folder on its RPATH; the module's .deb declares dependencies
  check_package.py doc DATA DOC
      DOC (docs/deploying.md) shows DATA's table of needs as it is, and its paragraph starting
      "**Floor.**" names exactly DATA's floor
  check_package.py table DATA
      prints DATA's table of needs in Markdown, as DOC must show it
"""
import difflib
import json
import pathlib
import re
import subprocess
import sys
import tarfile
import tempfile

DEVICE_DIR = "mnt/app/zrs_so/so/formatv2/"
PREVIEW_LIB_DIR = "usr/lib/formatv2-preview"
# Debian architecture: ELF class (1: 32-bit, 2: 64-bit) and e_machine (40: ARM, 62: x86-64).
MACHINES = {"armhf": (1, 40), "amd64": (2, 62)}
VERSION = re.compile(r"\b(GLIBCXX|GLIBC|CXXABI|GCC)_(\d+(?:\.\d+)*)\b")
failures = []


def check(ok, what):
    if not ok:
        failures.append(what)


def readelf(tool, args, path):
    return subprocess.run([tool, "-W", *args, path], check=True, capture_output=True,
                          text=True).stdout


def highest_versions(dump):
    best = {}
    for family, number in VERSION.findall(dump):
        key = tuple(int(n) for n in number.split("."))
        if key > best.get(family, ()):
            best[family] = key
    return {f"{family}_{'.'.join(map(str, key))}" for family, key in best.items()}


def load(data):
    """DATA's needs and floor; every version name it gives is checked for its form."""
    with open(data, encoding="utf-8") as f:
        content = json.load(f)
    for name in [v for row in content["needs"] for v in row["versions"]] + content["floor"]:
        if not VERSION.fullmatch(name):
            sys.exit(f"{data}: {name!r} is no symbol version name")
    return content["needs"], content["floor"]


def needs(tool, module, data):
    dynamic = readelf(tool, ["-d", "-V"], module)
    needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic))
    own = set(re.findall(r"\(SONAME\).*\[(.*)\]", dynamic))
    rows, _ = load(data)
    named = {lib for row in rows for lib in row["libraries"]} - own
    check(named == needed, f"libraries: module needs {sorted(needed)}, {data} names {sorted(named)}")
    wanted = highest_versions(dynamic.split(".gnu.version_r", 1)[-1])
    stated = {v for row in rows for v in row["versions"]}
    check(stated == wanted, f"versions: module asks {sorted(wanted)}, {data} states {sorted(stated)}")


def table(data):
    """DATA's needs as the Markdown table that docs/deploying.md shows."""
    def noted(text, note):
        return f"{text} ({note})" if note else text

    lines = ["| library | what for | newest symbol version asked for | Debian package |",
             "|---|---|---|---|"]
    for row in load(data)[0]:
        libraries = ", ".join(f"`{lib}`" for lib in row["libraries"])
        versions = noted(", ".join(f"`{v}`" for v in row["versions"]) or "-", row["versions_note"])
        package = noted(f"`{row['package']}`", row["package_note"]) if row["package"] \
            else row["package_note"]
        lines.append(f"| {libraries} | {row['for']} | {versions} | {package} |")
    return lines


def doc(data, path):
    text = open(path, encoding="utf-8").read()
    lines = text.splitlines()
    want = table(data)
    at = [i for i, line in enumerate(lines) if line == want[0]]
    check(len(at) == 1, f"{path}: {len(at)} tables of needs (header {want[0]!r}), expected one")
    if len(at) == 1:
        shown = lines[at[0]:]
        shown = shown[:next((i for i, line in enumerate(shown) if not line.startswith("|")),
                            len(shown))]
        check(shown == want, f"{path}: the table of needs is not {data}'s:\n" +
              "\n".join(difflib.unified_diff(shown, want, path, data, lineterm="")))
    _, limits = load(data)
    paragraph = re.search(r"^\*\*Floor\.\*\*(.*?)(?:\n\n|\Z)", text, re.S | re.M)
    check(paragraph, f"{path} states no '**Floor.**' paragraph")
    stated = {m.group(0) for m in VERSION.finditer(paragraph.group(1))} if paragraph else set()
    check(stated == set(limits), f"{path}: the floor names {sorted(stated)}, {data} {sorted(limits)}")


def version_key(name):
    family, number = VERSION.fullmatch(name).groups()
    return family, tuple(int(n) for n in number.split("."))


def floor(tool, folder, version, arch, data):
    limits = dict(map(version_key, load(data)[1]))
    debs = sorted(pathlib.Path(folder).glob(f"*_{version}_{arch}.deb"))
    check(len(debs) == 2, f"expected the two .deb packages in {folder}, found {debs}")
    for deb in debs:
        with tempfile.TemporaryDirectory() as root:
            subprocess.run(["dpkg-deb", "-x", deb, root], check=True)
            for path in sorted(pathlib.Path(root).rglob("*")):
                if path.is_symlink() or not path.is_file() or path.open("rb").read(4) != b"\x7fELF":
                    continue
                asked = highest_versions(readelf(tool, ["-V"], str(path)).split(".gnu.version_r", 1)[-1])
                name = f"{deb.name}:/{path.relative_to(root)}"
                print(f"{name}: {' '.join(sorted(asked))}")
                for family, number in map(version_key, asked):
                    check(family in limits and number <= limits[family],
                          f"{name} asks {family}_{'.'.join(map(str, number))}, above the floor")


def extract(archive, name, path):
    with open(path, "wb") as out:
        out.write(archive.extractfile(name).read())


def content(tool, folder, version, arch, default_config):
    module_tgz = f"{folder}/formatv2-{version}-{arch}.tar.gz"
    preview_tgz = f"{folder}/formatv2-preview-{version}-{arch}.tar.gz"
    with tarfile.open(module_tgz) as tgz:
        names = set(tgz.getnames())
        check(not any(n.endswith("libalgo.so") for n in names), "libalgo.so in the module tarball")
        config = DEVICE_DIR + "json/algo_private.json"
        check(config in names and tgz.extractfile(config).read() == open(default_config, "rb").read(),
              f"{config}: missing or not the default configuration")
        library = DEVICE_DIR + "libformatv2.so"
        check(library in names, f"{library} missing")
        if library not in names:
            return
        extract(tgz, library, f"{folder}/check-libformatv2.so")
    module = f"{folder}/check-libformatv2.so"
    header = open(module, "rb").read(20)
    # e_ident: class, data 1 = little-endian; e_machine.
    elf_class, machine = MACHINES[arch]
    check(header[:4] == b"\x7fELF" and header[4] == elf_class and header[5] == 1
          and int.from_bytes(header[18:20], "little") == machine, f"module is no {arch} ELF")
    sections = readelf(tool, ["-S"], module)
    check(".symtab" not in sections and ".debug_" not in sections, "module is not stripped")
    exported = set(re.findall(r"FUNC\s+GLOBAL\s+DEFAULT\s+\d+\s+(\w+)",
                              readelf(tool, ["--dyn-syms"], module)))
    check({"CreateModule", "DestroyModule"} <= exported, "entry points not exported")

    with tarfile.open(preview_tgz) as tgz:
        stand_ins = [n for n in tgz.getnames() if n.endswith("libalgo.so")]
        check(stand_ins == [f"{PREVIEW_LIB_DIR}/libalgo.so"], f"runner's stand-in at {stand_ins}")
        extract(tgz, "usr/bin/formatv2_preview", f"{folder}/check-formatv2_preview")
    dynamic = readelf(tool, ["-d"], f"{folder}/check-formatv2_preview")
    check("(RPATH)" in dynamic and "[$ORIGIN/../lib/formatv2-preview]" in dynamic,
          "runner does not find its stand-in before LD_LIBRARY_PATH")

    depends = subprocess.run(["dpkg-deb", "-f", f"{folder}/formatv2_{version}_{arch}.deb", "Depends"],
                             capture_output=True, text=True).stdout
    check("libcjson1" in depends and "libc6" in depends, f"module .deb Depends: {depends!r}")


if __name__ == "__main__":
    if sys.argv[1:2] == ["table"]:
        print("\n".join(table(*sys.argv[2:])))
        sys.exit(0)
    {"needs": needs, "floor": floor, "content": content, "doc": doc}[sys.argv[1]](*sys.argv[2:])
    for failure in failures:
        print(f"FAIL: {failure}")
    sys.exit(1 if failures else 0)
