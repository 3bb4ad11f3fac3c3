#!/usr/bin/env bash
# Checks that the code follows .clang-format, then builds and runs every test: native,
# AddressSanitizer+UBSan, ThreadSanitizer, under qemu the device build (against the Debian 11
# armhf root; its tests install the packages into that root and run the examples there) and the
# same device build for the old string ABI, and the x86-64 build for PCs (against the Debian 11
# amd64 root, its packages run there with chroot); then each fuzz target for a minute. Installs what is
# missing first. Exits non-zero on the first failure.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
bash scripts/sysroot.sh armhf
bash scripts/sysroot.sh amd64
bash scripts/format-check.sh

jobs=$(nproc)
for preset in release asan tsan device armhf-oldabi pc; do
  echo "=== ${preset} ==="
  cmake --preset "${preset}" >/dev/null
  cmake --build --preset "${preset}" -j "${jobs}"
  ctest --preset "${preset}" -j "${jobs}"
done
echo "=== fuzz: each target for a short fixed time ==="
bash scripts/fuzz.sh
echo "=== all test suites passed ==="
