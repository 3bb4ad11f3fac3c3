"""Runs the CI jobs of docs/ci.md against the x86-64 packages, in a Debian 11 root with chroot.

  ci_recipe.py DOC ROOT PACKAGE_DIR VERSION EXAMPLES WORK

Each job (the GitHub workflow's `run` steps, the GitLab job's script) runs as written in a fresh
copy of ROOT (WORK), in a repository made of EXAMPLES with the two .deb files in
formatv2-packages/. `apt-get update` is left out: the root holds the packages' dependencies and
the test runs offline. The examples hold configurations the module refuses, so each job must
fail, yet leave SARIF naming them and JUnit XML with one passing suite per scenario file.
"""
import json
import pathlib
import re
import shutil
import subprocess
import sys
import xml.etree.ElementTree as ET

import yaml

doc, root, packages, version, examples, work = sys.argv[1:]
failures = []
REPO = "builds/project"  # the checkout, inside the root


def check(ok, what):
    if not ok:
        failures.append(what)


def jobs():
    """(name, [(condition, commands)]) of each job in the document's YAML blocks."""
    found = []
    for block in re.findall(r"^```yaml\n(.*?)^```", open(doc, encoding="utf-8").read(), re.S | re.M):
        data = yaml.safe_load(block)
        if "jobs" in data:
            for name, job in data["jobs"].items():
                found.append((f"github:{name}", [(s.get("if", ""), s["run"]) for s in job["steps"]
                                                 if "run" in s]))
        else:
            for name, job in data.items():
                script = job.get("before_script", []) + job["script"]
                found.append((f"gitlab:{name}", [("", "\n".join(script))]))
    return found


def fresh_root():
    """WORK as a copy of ROOT: hard links, but /var (dpkg's state, logs) copied."""
    shutil.rmtree(work, ignore_errors=True)
    subprocess.run(["cp", "-al", root, work], check=True)
    shutil.rmtree(f"{work}/var")
    subprocess.run(["cp", "-a", f"{root}/var", f"{work}/var"], check=True)
    repo = pathlib.Path(work, REPO)
    shutil.copytree(examples, repo)
    (repo / "formatv2-packages").mkdir()
    for name in (f"formatv2_{version}_amd64.deb", f"formatv2-preview_{version}_amd64.deb"):
        shutil.copy(pathlib.Path(packages, name), repo / "formatv2-packages")
    return repo


def run_job(name, steps):
    repo = fresh_root()
    failed = False
    for condition, commands in steps:
        if failed and "!cancelled()" not in condition and "always()" not in condition:
            continue
        script = "\n".join(line for line in commands.splitlines() if line.strip() != "apt-get update")
        # /proc as on every running system (the loader expands the runner's $ORIGIN through it).
        done = subprocess.run(["unshare", "--fork", "--pid", f"--mount-proc={work}/proc",
                               "chroot", work, "bash", "-e", "-c", f"cd /{REPO}\n{script}"])
        print(f"{name}: exit {done.returncode}: {commands.strip()}")
        failed = failed or done.returncode != 0
    check(failed, f"{name}: passed, though examples/ holds configurations the module refuses")
    check_reports(name, repo)


def check_reports(name, repo):
    try:
        sarif = json.loads((repo / "formatv2.sarif").read_text(encoding="utf-8"))
        uris = {r["locations"][0]["physicalLocation"]["artifactLocation"]["uri"]
                for run in sarif["runs"] for r in run["results"]}
        check(sarif["version"] == "2.1.0", f"{name}: SARIF version {sarif['version']}")
        check(any(u.endswith("many-mistakes/algo_private.json") for u in uris),
              f"{name}: SARIF names no finding of many-mistakes: {sorted(uris)}")
        check(not any(u.endswith("basic/algo_private.json") for u in uris),
              f"{name}: SARIF has findings for the basic example")
    except (OSError, ValueError, KeyError, IndexError) as error:
        check(False, f"{name}: no usable SARIF: {error!r}")
    scenarios = [p for p in pathlib.Path(examples).rglob("*")
                 if p.name == "scenario.json" or p.name.endswith(".scenario.json")]
    try:
        suites = ET.parse(repo / "formatv2-junit.xml").getroot()
        check(len(suites.findall("testsuite")) == len(scenarios),
              f"{name}: {len(suites.findall('testsuite'))} suites for {len(scenarios)} scenarios")
        check(suites.findall(".//failure") + suites.findall(".//error") == [],
              f"{name}: scenarios failed in JUnit XML")
    except (OSError, ET.ParseError) as error:
        check(False, f"{name}: no usable JUnit XML: {error!r}")


found = jobs()
check(sorted(n.split(":")[0] for n, _ in found) == ["github", "gitlab"],
      f"{doc}: expected one GitHub workflow job and one GitLab job, found {[n for n, _ in found]}")
for job_name, job_steps in found:
    run_job(job_name, job_steps)
shutil.rmtree(work, ignore_errors=True)
for failure in failures:
    print(f"FAIL: {failure}")
sys.exit(1 if failures else 0)
