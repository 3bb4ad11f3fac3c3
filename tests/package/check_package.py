"""Checks of what the device gets.

  check_package.py needs READELF MODULE README
      the README's "Deploying to the device" names exactly the libraries the module needs and
      the highest symbol version it asks of each (GLIBC_, GLIBCXX_, CXXABI_, GCC_)
  check_package.py floor READELF PACKAGE_DIR VERSION README
      no ELF file in the .deb packages asks for a symbol version newer than the floor that the
      README's "Deploying to the device" states (its paragraph starting "**Floor.**"); prints
      the newest version each file asks for
  check_package.py content READELF PACKAGE_DIR VERSION DEFAULT_CONFIG
      the module tarball holds a stripped 32-bit ARM module exporting the entry points and the
      default configuration, and no libalgo.so; the runner's tarball keeps its stand-in in a
      private folder on its RPATH; the module's .deb declares dependencies
"""
import re
import pathlib
import subprocess
import sys
import tarfile
import tempfile

DEVICE_DIR = "mnt/app/zrs_so/so/formatv2/"
PREVIEW_LIB_DIR = "usr/lib/formatv2-preview"
SONAME = re.compile(r"\b(?:lib[\w+-]*|ld-linux[\w-]*)\.so(?:\.\d+)*\b")
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


def deploy_section(readme):
    """The README's deployment section split into its table of needs and its floor paragraph."""
    text = open(readme, encoding="utf-8").read()
    section = re.search(r"^## Deploying to the device\n(.*?)(?=^## |\Z)", text, re.S | re.M)
    check(section, "README has no section '## Deploying to the device'")
    body = section.group(1) if section else ""
    floor = re.search(r"^\*\*Floor\.\*\*(.*?)(?:\n\n|\Z)", body, re.S | re.M)
    check(floor, "README states no '**Floor.**' paragraph")
    return re.sub(r"^\*\*Floor\.\*\*.*?(?:\n\n|\Z)", "", body, flags=re.S | re.M), \
        floor.group(1) if floor else ""


def needs(tool, module, readme):
    dynamic = readelf(tool, ["-d", "-V"], module)
    needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic))
    own = set(re.findall(r"\(SONAME\).*\[(.*)\]", dynamic))
    section, _ = deploy_section(readme)
    named = set(SONAME.findall(section)) - own
    check(named == needed, f"libraries: module needs {sorted(needed)}, README names {sorted(named)}")
    wanted = highest_versions(dynamic.split(".gnu.version_r", 1)[-1])
    stated = {m.group(0) for m in VERSION.finditer(section)}
    check(stated == wanted, f"versions: module asks {sorted(wanted)}, README states {sorted(stated)}")


def version_key(name):
    family, number = VERSION.fullmatch(name).groups()
    return family, tuple(int(n) for n in number.split("."))


def floor(tool, folder, version, readme):
    limits = dict(version_key(m.group(0)) for m in VERSION.finditer(deploy_section(readme)[1]))
    debs = sorted(pathlib.Path(folder).glob(f"*_{version}_armhf.deb"))
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


def content(tool, folder, version, default_config):
    module_tgz = f"{folder}/formatv2-{version}-armhf.tar.gz"
    preview_tgz = f"{folder}/formatv2-preview-{version}-armhf.tar.gz"
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
    # e_ident: class 1 = 32-bit, data 1 = little-endian; e_machine 40 = ARM.
    check(header[:4] == b"\x7fELF" and header[4] == 1 and header[5] == 1
          and int.from_bytes(header[18:20], "little") == 40, "module is no 32-bit ARM ELF")
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

    depends = subprocess.run(["dpkg-deb", "-f", f"{folder}/formatv2_{version}_armhf.deb", "Depends"],
                             capture_output=True, text=True).stdout
    check("libcjson1" in depends and "libc6" in depends, f"module .deb Depends: {depends!r}")


if __name__ == "__main__":
    {"needs": needs, "floor": floor, "content": content}[sys.argv[1]](*sys.argv[2:])
    for failure in failures:
        print(f"FAIL: {failure}")
    sys.exit(1 if failures else 0)
