"""The configuration schema: every example configuration validates, and files with a wrong
type, a missing key or a value out of range are refused.

usage: schema_test.py SCHEMA DEFAULT_CONFIG EXAMPLES_DIR
"""
import copy
import glob
import json
import os
import sys

import jsonschema

# Examples that show mistakes on purpose: not JSON, or accepted by the module but linted.
DELIBERATE = {"bad-json", "lint-warnings"}

ROW = {"SubParamStr": "1:blob:count:*:%d", "IsCustomEdit": 0, "ShowValue_CN": "", "ShowValue_EN": "",
       "ParamName": "count", "ConvertType": 1, "StrTruncEnable": 0, "StrTruncStart": 0,
       "StrTruncLen": 0, "StrPrefix": "", "StrSuffix": "", "StrDelete": ""}
ARRAY = dict(ROW, ParamName="points", ConvertType=3,
             Array=[{"SubParamStr": "1:blob:x:*:%5d", "Separator": ",", "ShowValue_CN": "", "ShowValue_EN": ""}])
for key in ("SubParamStr", "IsCustomEdit", "ShowValue_CN", "ShowValue_EN"):
    del ARRAY[key]
BASE = {"ModuleName": "m", "StrConcateEnable": 0, "ParamName": "all", "SubParamList": [ROW, ARRAY]}


def change(path, value):
    """A copy of BASE with the value at path replaced (None: the key removed)."""
    def apply(config):
        *parents, last = path
        target = config
        for p in parents:
            target = target[p]
        if value is None:
            del target[last]
        else:
            target[last] = value
        return config
    return apply


REFUSED = [
    ("wrong type: ConvertType as text", change(["SubParamList", 0, "ConvertType"], "1")),
    ("wrong type: StrConcateEnable as text", change(["StrConcateEnable"], "0")),
    ("wrong type: SubParamList an object", change(["SubParamList"], {})),
    ("wrong type: Separator a number", change(["SubParamList", 1, "Array", 0, "Separator"], 1)),
    ("missing: top-level ParamName", change(["ParamName"], None)),
    ("missing: StrDelete", change(["SubParamList", 0, "StrDelete"], None)),
    ("missing: IsCustomEdit of a single row", change(["SubParamList", 0, "IsCustomEdit"], None)),
    ("missing: Separator of a field", change(["SubParamList", 1, "Array", 0, "Separator"], None)),
    ("range: ConvertType 4", change(["SubParamList", 0, "ConvertType"], 4)),
    ("range: IsCustomEdit 2", change(["SubParamList", 0, "IsCustomEdit"], 2)),
    ("range: StrTruncStart -1", change(["SubParamList", 0, "StrTruncStart"], -1)),
    ("range: empty ParamName", change(["SubParamList", 0, "ParamName"], "")),
    ("range: ParamName of 48 bytes", change(["SubParamList", 0, "ParamName"], "n" * 48)),
    ("grammar: subscription without an id", change(["SubParamList", 0, "SubParamStr"], "blob:count:*:%d")),
    ("grammar: field subscription with three parts", change(["SubParamList", 1, "Array", 0, "SubParamStr"], "1:blob:x")),
    ("key: misspelt StrPrefix", change(["SubParamList", 0, "StrPerfix"], "")),
]


def main():
    schema_path, default_config, examples = sys.argv[1:4]
    with open(schema_path) as f:
        schema = json.load(f)
    jsonschema.Draft7Validator.check_schema(schema)
    validator = jsonschema.Draft7Validator(schema)
    failures = []

    valid = [default_config]
    for path in sorted(glob.glob(os.path.join(examples, "*", "*.json"))):
        if os.path.basename(os.path.dirname(path)) in DELIBERATE:
            continue
        with open(path) as f:
            if "SubParamList" in json.load(f):
                valid.append(path)
    for path in valid + ["<base>"]:
        if path == "<base>":
            config = BASE
        else:
            with open(path) as f:
                config = json.load(f)
        errors = [e.message for e in validator.iter_errors(config)]
        if errors:
            failures.append(f"{path}: refused: {errors[0]}")

    with open(os.path.join(examples, "lint-warnings", "algo_private.json")) as f:
        if validator.is_valid(json.load(f)):
            failures.append("lint-warnings/algo_private.json: accepted despite its misspelt key")
    for name, apply in REFUSED:
        if validator.is_valid(apply(copy.deepcopy(BASE))):
            failures.append(f"{name}: accepted")

    for failure in failures:
        print(failure)
    print(f"schema: {len(valid) + len(REFUSED) + 2 - len(failures)} cases hold, {len(failures)} do not")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
