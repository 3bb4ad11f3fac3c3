#!/usr/bin/env bash
# Builds the module and runs it, loaded as the host loads it, on the bundled example.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh >/dev/null
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target formatv2_demo
./build/release/tools/demo/formatv2_demo examples/basic/algo_private.json "$@"
