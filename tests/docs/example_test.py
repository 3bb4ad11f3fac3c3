"""The worked example that opens configuration.md is the example folder that `test examples`
checks: its two JSON blocks equal the folder's files, parsed, and the bytes it shows (characters,
hexadecimal and their count) are the first run's expected output.

usage: example_test.py CONFIGURATION_MD EXAMPLE_DIR
"""
import json
import os
import re
import sys

HEADING = "## Example: a telegram to a PLC"


def main():
    doc_path, folder = sys.argv[1:3]
    with open(doc_path, encoding="utf-8") as f:
        doc = f.read()
    if HEADING not in doc:
        print(f"{doc_path}: no heading {HEADING!r}")
        return 1
    section = doc.split(HEADING, 1)[1].split("\n## ", 1)[0]
    blocks = re.findall(r"^```(\w+)\n(.*?)^```$", section, re.M | re.S)
    shown = [json.loads(text) for lang, text in blocks if lang == "json"]
    files = []
    for name in ("algo_private.json", "scenario.json"):
        with open(os.path.join(folder, name), encoding="utf-8") as f:
            files.append(json.load(f))
    config, scenario = files
    output = scenario["runs"][0]["expect"]["outputs"][config["ParamName"]]
    expected = output["string"].encode("utf-8")

    failures = []
    if shown != files:
        failures.append("the JSON blocks differ from algo_private.json and scenario.json")
    text = [t for lang, t in blocks if lang == "text"]
    if len(text) != 1 or len(text[0].splitlines()) != 2:
        failures.append("no text block of two lines (characters, hexadecimal)")
    else:
        chars, hexes = text[0].splitlines()
        names = {"CR": b"\r", "LF": b"\n"}
        if b"".join(names.get(c, c.encode("utf-8")) for c in chars.split()) != expected:
            failures.append(f"characters {chars!r} are not {expected!r}")
        if bytes.fromhex(hexes) != expected:
            failures.append(f"bytes {hexes!r} are not {expected.hex(' ').upper()!r}")
    counts = re.findall(r"(\d+) bytes", section)
    if counts != [str(len(expected))]:
        failures.append(f"byte counts {counts} are not [{len(expected)}]")

    for failure in failures:
        print(f"{doc_path}: {failure}")
    print(f"example: {'holds' if not failures else 'does not hold'}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
