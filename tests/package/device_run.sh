#!/usr/bin/env bash
# Installs both .deb packages into a copy of a device root and runs the installed runner's
# `test` over the examples there, under qemu-arm -L: the packages as an older device gets them.
#   device_run.sh QEMU ROOT PACKAGE_DIR VERSION EXAMPLES WORK
# The copy (WORK) is made of hard links, so the root itself is never changed.
set -euo pipefail
qemu=$1 root=$2 packages=$3 version=$4 examples=$5 work=$6

rm -rf "${work}"
cp -al "${root}" "${work}"
for deb in "${packages}/formatv2_${version}_armhf.deb" "${packages}/formatv2-preview_${version}_armhf.deb"; do
  dpkg-deb --fsys-tarfile "${deb}" | tar -x --keep-directory-symlink -C "${work}"
done
# The runner's build-tree default would be found on this machine through qemu's fallback to
# host paths: name the installed module.
"${qemu}" -L "${work}" "${work}/usr/bin/formatv2_preview" --version
"${qemu}" -L "${work}" "${work}/usr/bin/formatv2_preview" test "${examples}" \
  --module /mnt/app/zrs_so/so/formatv2/libformatv2.so
rm -rf "${work}"
