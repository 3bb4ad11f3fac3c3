#!/usr/bin/env bash
# Builds the device packages from the device build (against the Debian 11 root, which is made
# first): a tarball and a .deb of the module (formatv2) and of the preview runner
# (formatv2-preview), in build/device/packages/.
set -euo pipefail
cd "$(dirname "$0")/.."

case "${1:-}" in
  -h|--help) sed -n '2,4s/^# //p' "$0"; exit 0 ;;
  "") ;;
  *) echo "usage: scripts/package.sh [--help]" >&2; exit 2 ;;
esac
preset=device

bash scripts/setup.sh >/dev/null
bash scripts/sysroot.sh >/dev/null
cmake --preset "${preset}" >/dev/null
cmake --build --preset "${preset}" -j "$(nproc)"

out="build/${preset}/packages"
rm -f "${out}"/*.tar.gz "${out}"/*.deb
cpack --config "build/${preset}/CPackConfig.cmake" -B "${out}" >/dev/null
ls -l "${out}"/*.tar.gz "${out}"/*.deb
