"""The scenario schema: every example scenario validates, and scenarios with a misspelt key or a
value of the wrong shape are refused.

usage: scenario_schema_test.py SCHEMA SCENARIO...
"""
import copy
import json
import sys

import jsonschema

BASE = {"config": "algo_private.json", "params": [{"name": "Threshold", "type": "int"}],
        "expect_init": {"status": 0},
        "runs": [{"name": "one", "img_mode": 0, "values": {"blob:count": {"int": 3}},
                  "set_param": {"name": "CommandFormatV2Ensure", "value": "1"},
                  "expect": {"status": "0xC0000004", "outputs": {"count": {"int": [3]}, "all": None}}}]}


def changed(edit):
    scenario = copy.deepcopy(BASE)
    edit(scenario)
    return scenario


REFUSED = [
    ("misspelt top-level key", changed(lambda s: s.update(module_di=1))),
    ("misspelt run key", changed(lambda s: s["runs"][0].update(img_mod=0))),
    ("misspelt expect key", changed(lambda s: s["runs"][0]["expect"].update(verdcit="OK"))),
    ("misspelt value type", changed(lambda s: s["runs"][0]["values"].update({"blob:x": {"integer": 1}}))),
    ("two value types", changed(lambda s: s["runs"][0]["values"].update({"blob:x": {"int": 1, "float": 1}}))),
    ("int out of range", changed(lambda s: s["runs"][0]["values"].update({"blob:x": {"int": 2 ** 31}}))),
    ("status not a number", changed(lambda s: s["runs"][0]["expect"].update(status="C0000004"))),
    ("set_param without value", changed(lambda s: s["runs"][0]["set_param"].pop("value"))),
    ("config missing", changed(lambda s: s.pop("config"))),
    ("expect_init with outputs", changed(lambda s: s["expect_init"].update(outputs={}))),
]


def main():
    schema_path, *scenarios = sys.argv[1:]
    with open(schema_path) as f:
        schema = json.load(f)
    jsonschema.Draft7Validator.check_schema(schema)
    validator = jsonschema.Draft7Validator(schema)
    failures = []
    accepted = {"<base>": BASE}
    for path in scenarios:
        with open(path) as f:
            accepted[path] = json.load(f)
    for name, scenario in accepted.items():
        errors = [e.message for e in validator.iter_errors(scenario)]
        if errors:
            failures.append(f"{name}: refused: {errors[0]}")
    for name, scenario in REFUSED:
        if validator.is_valid(scenario):
            failures.append(f"{name}: accepted")
    for failure in failures:
        print(failure)
    print(f"scenario schema: {len(accepted) + len(REFUSED) - len(failures)} cases hold, {len(failures)} do not")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
