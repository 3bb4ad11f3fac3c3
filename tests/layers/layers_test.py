"""The layers of the module depend one way: each folder includes only its own headers and
those of the folders below it, as its CMake target links them; so do the runner's folders. Run as
  layers_test.py SOURCE_DIR
and exits 1 naming every include that reaches up or sideways."""
import pathlib
import re
import sys

# Folder -> the folders its code may include (besides its own), bottom first.
ALLOWED = {
    "log": set(),
    "contract": {"log"},
    "format": {"contract", "log"},
    "config": {"format", "contract", "log", "host"},
    "assembly": {"config", "format", "contract", "log", "host"},
    "publish": {"config", "format", "contract", "log", "host"},
    "formatv2": {"publish", "assembly", "config", "format", "contract", "log", "host"},
}
# The runner's folders, bottom first: each includes only the runner folders before it (and any
# layer of the module, all of which lie below the runner).
RUNNER = ["base", "drive", "render", "check", "commands", "serve", "cli"]
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)


def main(root):
    root = pathlib.Path(root)
    wrong = []
    for folder, allowed in ALLOWED.items():
        for source in sorted((root / folder).rglob("*")):
            if source.suffix not in (".h", ".cpp"):
                continue
            for header in INCLUDE.findall(source.read_text(encoding="utf-8")):
                top = header.split("/")[0] if "/" in header else folder
                if top == folder or top in allowed:
                    # The module's code sees the host's declarations, never the stand-in's.
                    if header.startswith("host/standin/"):
                        wrong.append(f"{source.relative_to(root)}: {header}")
                    continue
                wrong.append(f"{source.relative_to(root)}: {header}")
    runner = root / "tools" / "runner"
    for level, folder in enumerate(RUNNER):
        for source in sorted((runner / folder).rglob("*")):
            if source.suffix not in (".h", ".cpp"):
                continue
            for header in INCLUDE.findall(source.read_text(encoding="utf-8")):
                top = header.split("/")[0]
                if top in RUNNER[level + 1:]:
                    wrong.append(f"{source.relative_to(root)}: {header}")
    for line in wrong:
        print(f"layer violation: {line}")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
