#!/usr/bin/env bash
# Builds the packages from the builds against the Debian 11 roots (each made first): a tarball
# and a .deb of the module (formatv2) and of the preview runner (formatv2-preview), for the
# device (armhf, build/device/packages/) and for integrators' PCs and CI (amd64, build/pc/packages/).
#   scripts/package.sh [device|pc]...   (both when none is named)
set -euo pipefail
cd "$(dirname "$0")/.."

presets=()
for arg in "$@"; do
  case "${arg}" in
    -h|--help) sed -n '2,5s/^# //p' "$0"; exit 0 ;;
    device|pc) presets+=("${arg}") ;;
    *) echo "usage: scripts/package.sh [device|pc]... [--help]" >&2; exit 2 ;;
  esac
done
[ "${#presets[@]}" -gt 0 ] || presets=(device pc)

bash scripts/setup.sh >/dev/null
for preset in "${presets[@]}"; do
  case "${preset}" in
    device) bash scripts/sysroot.sh armhf >/dev/null ;;
    pc) bash scripts/sysroot.sh amd64 >/dev/null ;;
  esac
  cmake --preset "${preset}" >/dev/null
  cmake --build --preset "${preset}" -j "$(nproc)"

  out="build/${preset}/packages"
  rm -f "${out}"/*.tar.gz "${out}"/*.deb
  cpack --config "build/${preset}/CPackConfig.cmake" -B "${out}" >/dev/null
  ls -l "${out}"/*.tar.gz "${out}"/*.deb
done
