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
DELIBERATE = {"bad-json", "lint-warnings", "many-mistakes"}

ROW = {"SubParamStr": "1:blob:count:*:%d", "IsCustomEdit": 0, "ShowValue_CN": "", "ShowValue_EN": "",
       "ParamName": "count", "ConvertType": 1, "StrTruncEnable": 0, "StrTruncStart": 0,
       "StrTruncLen": 0, "StrPrefix": "", "StrSuffix": "", "StrDelete": ""}
ARRAY = dict(ROW, ParamName="points", ConvertType=3,
             Array=[{"SubParamStr": "1:blob:x:*:%5d", "Separator": ",", "ShowValue_CN": "", "ShowValue_EN": ""}])
for key in ("SubParamStr", "IsCustomEdit", "ShowValue_CN", "ShowValue_EN"):
    del ARRAY[key]
BASE = {"ModuleName": "m", "StrConcateEnable": 0, "ParamName": "all", "SubParamList": [ROW, ARRAY]}


def changed(path, value):
    """A copy of BASE with the value at path replaced (None: the key removed)."""
    config = copy.deepcopy(BASE)
    *parents, last = path
    target = config
    for p in parents:
        target = target[p]
    if value is None:
        del target[last]
    else:
        target[last] = value
    return config


def load(path):
    with open(path) as f:
        return json.load(f)


REFUSED = [
    ("wrong type: ConvertType as text", changed(["SubParamList", 0, "ConvertType"], "1")),
    ("wrong type: StrConcateEnable as text", changed(["StrConcateEnable"], "0")),
    ("wrong type: SubParamList an object", changed(["SubParamList"], {})),
    ("wrong type: Separator a number", changed(["SubParamList", 1, "Array", 0, "Separator"], 1)),
    ("missing: top-level ParamName", changed(["ParamName"], None)),
    ("missing: StrDelete", changed(["SubParamList", 0, "StrDelete"], None)),
    ("missing: IsCustomEdit of a single row", changed(["SubParamList", 0, "IsCustomEdit"], None)),
    ("missing: Separator of a field", changed(["SubParamList", 1, "Array", 0, "Separator"], None)),
    ("range: ConvertType 4", changed(["SubParamList", 0, "ConvertType"], 4)),
    ("range: ConvertType 1 in joined mode", changed(["StrConcateEnable"], 1)),
    ("range: IsCustomEdit 2", changed(["SubParamList", 0, "IsCustomEdit"], 2)),
    ("range: StrTruncStart -1", changed(["SubParamList", 0, "StrTruncStart"], -1)),
    ("range: empty ParamName", changed(["SubParamList", 0, "ParamName"], "")),
    ("range: ParamName of 48 bytes", changed(["SubParamList", 0, "ParamName"], "n" * 48)),
    ("grammar: subscription without an id", changed(["SubParamList", 0, "SubParamStr"], "blob:count:*:%d")),
    ("grammar: field subscription with three parts", changed(["SubParamList", 1, "Array", 0, "SubParamStr"], "1:blob:x")),
    ("key: misspelt StrPrefix", changed(["SubParamList", 0, "StrPerfix"], "")),
]


def main():
    schema_path, default_config, examples = sys.argv[1:4]
    schema = load(schema_path)
    jsonschema.Draft7Validator.check_schema(schema)
    validator = jsonschema.Draft7Validator(schema)
    failures = []

    configs = {"<base>": BASE, default_config: load(default_config)}
    for path in sorted(glob.glob(os.path.join(examples, "*", "*.json"))):
        if os.path.basename(os.path.dirname(path)) not in DELIBERATE:
            config = load(path)
            if "SubParamList" in config:
                configs[path] = config
    for path, config in configs.items():
        errors = [e.message for e in validator.iter_errors(config)]
        if errors:
            failures.append(f"{path}: refused: {errors[0]}")

    if validator.is_valid(load(os.path.join(examples, "lint-warnings", "algo_private.json"))):
        failures.append("lint-warnings/algo_private.json: accepted despite its misspelt key")
    for name, config in REFUSED:
        if validator.is_valid(config):
            failures.append(f"{name}: accepted")

    for failure in failures:
        print(failure)
    print(f"schema: {len(configs) + len(REFUSED) + 1 - len(failures)} cases hold, {len(failures)} do not")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
