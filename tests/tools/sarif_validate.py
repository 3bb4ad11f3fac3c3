#!/usr/bin/env python3
"""check --sarif on every example, with relative and with absolute file names, through the
reference SARIF validator and its default rules: any result of level error or warning fails.

    sarif_validate.py RUNNER EXAMPLES VALIDATOR WORKDIR
"""
import glob
import json
import os
import subprocess
import sys


def main(runner, examples, validator, work):
    os.makedirs(work, exist_ok=True)
    configs = sorted(glob.glob("*/algo_private.json", root_dir=examples))
    failed = False
    for name, files in (("relative", configs),
                        ("absolute", [os.path.join(examples, c) for c in configs])):
        log = os.path.join(work, name + ".sarif")
        with open(log, "w") as out:
            checked = subprocess.run([runner, "check", "--sarif", *files], cwd=examples, stdout=out)
        if checked.returncode not in (0, 1):
            print(f"check exited {checked.returncode}")
            return 1
        verdict = os.path.join(work, name + ".validation.sarif")
        subprocess.run([validator, "validate", log, "--output", verdict, "--log", "ForceOverwrite"],
                       check=True, stdout=subprocess.DEVNULL)
        with open(verdict) as f:
            results = json.load(f)["runs"][0].get("results", [])
        # A result without a level is a warning.
        for r in results:
            if r.get("level", "warning") in ("error", "warning"):
                print(name, r.get("level", "warning"), r["ruleId"], r["message"].get("text", ""))
                failed = True
    if not failed:
        print("the validator reports no error or warning")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:5]))
