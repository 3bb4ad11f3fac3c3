#!/usr/bin/env bash
# Fails when a C or C++ file under version control differs from what clang-format makes of it
# under the project's .clang-format. `scripts/format-check.sh --fix` rewrites them instead.
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t files < <(git ls-files '*.c' '*.cpp' '*.h')
if [[ "${1:-}" == "--fix" ]]; then
  clang-format -i "${files[@]}"
  exit 0
fi
clang-format --dry-run -Werror "${files[@]}"
echo "clang-format: ${#files[@]} files follow .clang-format"
