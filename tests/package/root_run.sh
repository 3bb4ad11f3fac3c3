#!/usr/bin/env bash
# Installs both .deb packages into a copy of a Debian 11 root and runs the installed runner's
# `test` over the examples there, and its browser preview on examples/basic: the packages as an
# older system gets them.
#   root_run.sh ARCH ROOT PACKAGE_DIR VERSION EXAMPLES WORK [QEMU]
# armhf runs under QEMU -L WORK; amd64 with chroot WORK (as root), the examples copied in.
# The copy (WORK) is made of hard links, so the root itself is never changed.
set -euo pipefail
arch=$1 root=$2 packages=$3 version=$4 examples=$5 work=$6 qemu=${7:-}

rm -rf "${work}"
cp -al "${root}" "${work}"
for deb in "${packages}/formatv2_${version}_${arch}.deb" "${packages}/formatv2-preview_${version}_${arch}.deb"; do
  dpkg-deb --fsys-tarfile "${deb}" | tar -x --keep-directory-symlink -C "${work}"
done
if [ "${arch}" = armhf ]; then
  runner=("${qemu}" -L "${work}" "${work}/usr/bin/formatv2_preview")
  # Without binfmt_misc the server's child processes would not start under QEMU: the page and
  # files only.
  preview=(--no-preview)
else
  mkdir "${work}/examples"
  cp -R "${examples}/." "${work}/examples"
  examples=/examples
  # With /proc (a private mount, gone with the process): the loader reads the runner's own
  # path there to expand $ORIGIN in its RPATH, as on every running system.
  runner=(unshare --fork --kill-child --pid --mount-proc="${work}/proc" chroot "${work}" /usr/bin/formatv2_preview)
  preview=()
fi
run() { "${runner[@]}" "$@"; }
# The runner's build-tree default could be found on this machine (through qemu's fallback to
# host paths): name the installed module.
run --version
run test "${examples}" --module /mnt/app/zrs_so/so/formatv2/libformatv2.so
/usr/bin/python3 "$(dirname "$0")/serve_smoke.py" "${examples}/basic" \
  /mnt/app/zrs_so/so/formatv2/libformatv2.so "${preview[@]}" -- "${runner[@]}"
rm -rf "${work}"
