#!/usr/bin/env bash
# Fault harness: plants each fault of scripts/mutants.txt alone in a scratch copy of the tree
# (build/mutants/src, the files git tracks or would track, as they are in the working tree),
# rebuilds the fault's preset there incrementally (Ninja, -j2, warnings not fatal), runs the
# whole test suite and records every test that fails. The real tree is never changed.
#
#   scripts/mutants.sh [--check] [-o FILE] [-r REV] [-x REGEX] [ID...]
#     --check  build nothing: only verify that each fault's text to find stands exactly once in
#              its file, that no id is used twice and that no replacement equals its text; lists
#              the faults that fail and exits 1 when any does
#     -o FILE  also write the table to FILE (Markdown)
#     -r REV   the tree of commit REV instead of the working tree (for a "before" table)
#     -x REGEX leave out the tests whose names match (ctest -E), e.g. the timing-sensitive
#              browser test on a machine that is not quiet; the table then says less
#     ID       only these faults (default: all)
#
# A fault is built as the release preset, or as the preset its optional sixth field names
# (asan for a fault that only AddressSanitizer can see). Each preset's unchanged copy must
# build and pass every test before its first fault. After each build the harness checks that
# every object file that depends on the planted file (or, for a file that only reaches the
# link, the library linked with it) was written again (and notes when all of
# them equal the unchanged copy's: the fault compiled to the same code); otherwise the fault
# is NOT REBUILT.
# A fault that survives is planted again on a clean build (every object rebuilt) before it is
# counted.
#
# Per fault the table gives the tests that caught it: the C++ suites (GoogleTest and the fuzz
# replay) and, apart, the example golden tests; SURVIVED when none failed, NOT APPLIED when
# the text to find is missing or not unique, BUILD FAILED when the fault does not compile.
# Exits 1 when a fault survives, is not applied or not rebuilt.
set -euo pipefail
cd "$(dirname "$0")/.."
exec python3 scripts/mutants.py "$@"
