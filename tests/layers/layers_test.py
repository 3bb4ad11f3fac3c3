"""The layers depend one way. A layer's code sees only the include roots of the targets it
links, so the build stops an include that reaches up or sideways; what it cannot stop is a
target linking upwards, or an include root that opens another folder. This checks both on the
graph that layers.cmake writes at configure time: every target of a layer folder links only
the targets below it that the table names, and adds no include root inside another folder of
the tree (nor the tree's root); and the runner's folders include one way. Run as
  layers_test.py SOURCE_DIR LAYERS_TXT
and exits 1 naming every link and include root that breaks the layering."""
import pathlib
import re
import sys

# Target -> the tree's targets it may link, bottom first: each names only targets above it in
# this table. The module links the host library (algo), never the stand-in's controls, and not
# the lint (formatv2_analysis), which only the tools and tests link.
ALLOWED = {
    "formatv2_log_api": set(),
    "formatv2_log": {"formatv2_log_api"},
    "formatv2_host_api": set(),
    "algo": {"formatv2_host_api"},
    "formatv2_standin": {"algo"},
    "formatv2_contract": {"formatv2_log_api"},
    "formatv2_record": {"formatv2_contract"},
    "formatv2_format": {"formatv2_contract"},
    "formatv2_config": {"formatv2_format", "formatv2_contract", "formatv2_host_api"},
    "formatv2_assembly": {"formatv2_config", "formatv2_format", "formatv2_contract",
                          "formatv2_host_api"},
    "formatv2_publish": {"formatv2_config", "formatv2_format", "formatv2_contract",
                         "formatv2_host_api"},
    "formatv2_analysis": {"formatv2_publish", "formatv2_assembly", "formatv2_config",
                          "formatv2_format", "formatv2_contract", "formatv2_host_api"},
    "formatv2_shell": {"formatv2_publish", "formatv2_assembly", "formatv2_config",
                       "formatv2_format", "formatv2_record", "formatv2_contract", "algo"},
    "formatv2": {"formatv2_shell", "formatv2_publish", "formatv2_assembly", "formatv2_config",
                 "formatv2_format", "formatv2_record", "formatv2_log", "algo"},
    "formatv2_static": {"formatv2_shell", "formatv2_log"},
}
# Folders of the tree that hold code; an include root inside one opens its headers.
CODE_DIRS = ("host", "log", "contract", "record", "format", "config", "assembly", "publish",
             "analysis", "formatv2", "tools", "tests", "fuzz", "bench")


def check(source, lines):
    wrong = []
    order = list(ALLOWED)
    for target, allowed in ALLOWED.items():
        for below in allowed:
            if below not in ALLOWED or order.index(below) >= order.index(target):
                wrong.append(f"table: {target} may link {below}, which is not below it")
    seen = set()
    for line in lines:
        folder, target, kind, items = line.split("\t")
        items = [item for item in items.split(";") if item]
        seen.add(target)
        if target not in ALLOWED:
            wrong.append(f"{folder}: target {target} has no entry in the table")
            continue
        if kind == "links":
            wrong += [f"{folder}: {target} links {item}" for item in items
                      if item not in ALLOWED[target]]
            continue
        for item in items:
            path = pathlib.Path(item).resolve()
            if path == source:
                wrong.append(f"{folder}: {target} has the tree's root as include root")
                continue
            for code in CODE_DIRS:
                if code != folder and path.is_relative_to(source / code):
                    wrong.append(f"{folder}: {target} has include root {item}")
    wrong += [f"table: no target {target} in the build" for target in ALLOWED
              if target not in seen]
    return wrong


# The runner's folders share one include root, so the build cannot keep them apart: bottom first,
# each includes only the runner's folders before it.
RUNNER = ["base", "drive", "render", "check", "commands", "serve", "cli"]
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)


def check_runner(source):
    wrong = []
    runner = source / "tools" / "runner"
    for level, folder in enumerate(RUNNER):
        for path in sorted((runner / folder).rglob("*")):
            if path.suffix not in (".h", ".cpp"):
                continue
            for header in INCLUDE.findall(path.read_text(encoding="utf-8")):
                if header.split("/")[0] in RUNNER[level + 1:]:
                    wrong.append(f"{path.relative_to(source)} includes {header}")
    return wrong


def main(source, layers):
    root = pathlib.Path(source).resolve()
    wrong = check(root, pathlib.Path(layers).read_text(encoding="utf-8").splitlines())
    wrong += check_runner(root)
    for line in wrong:
        print(f"layer violation: {line}")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2]))
