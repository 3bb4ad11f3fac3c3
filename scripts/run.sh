#!/usr/bin/env bash
# Builds the module and the preview runner, then runs the bundled example the way the host
# would: load libformatv2.so, initialise it, wire its subscriptions, call Process per run.
# Extra arguments go to the runner (for instance --json or --log-level warn).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh >/dev/null
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target formatv2_preview
./build/release/tools/runner/formatv2_preview run examples/basic/scenario.json "$@"
