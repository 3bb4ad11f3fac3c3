#!/usr/bin/env bash
# Builds the device packages from the armhf cross build: a tarball and a .deb of the module
# (formatv2) and of the preview runner (formatv2-preview), in build/armhf/packages/.
set -euo pipefail
cd "$(dirname "$0")/.."

case "${1:-}" in
  -h|--help) sed -n '2,3s/^# //p' "$0"; exit 0 ;;
  "") ;;
  *) echo "usage: scripts/package.sh [--help]" >&2; exit 2 ;;
esac
preset=armhf

bash scripts/setup.sh >/dev/null
cmake --preset "${preset}" >/dev/null
cmake --build --preset "${preset}" -j "$(nproc)"

out="build/${preset}/packages"
rm -f "${out}"/*.tar.gz "${out}"/*.deb
cpack --config "build/${preset}/CPackConfig.cmake" -B "${out}" >/dev/null
ls -l "${out}"/*.tar.gz "${out}"/*.deb
