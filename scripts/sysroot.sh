#!/usr/bin/env bash
# Makes a Debian 11 ("bullseye") root that the shipped builds compile and link against and
# that the packages are tried in: scripts/sysroot.sh [ARCH [DIR]]
#   armhf (the default)  the device's root, build/sysroot/bullseye-armhf; the packaged runner
#                        runs in it under qemu
#   amd64                integrators' PCs and CI, build/sysroot/bullseye-amd64; a complete
#                        system that the packages are installed into and run in with chroot
# debootstrap's first stage downloads the packages. For armhf (no chroot, no binfmt) every
# downloaded package is then unpacked with dpkg-deb; amd64 runs the second stage in a chroot
# (as root), which also installs and configures them, so dpkg and apt work inside the root.
# Idempotent: a finished root is left alone and nothing is downloaded.
set -euo pipefail
cd "$(dirname "$0")/.."

arch="${1:-armhf}"
case "${arch}" in
  armhf|amd64) ;;
  *) echo "usage: scripts/sysroot.sh [armhf|amd64 [DIR]]" >&2; exit 2 ;;
esac
root="${2:-build/sysroot/bullseye-${arch}}"
# The Debian archive this machine's apt already uses (it serves every release).
# shellcheck disable=SC2016 # $(REPO_URI) is apt's field name, not a shell expansion
mirror="${FORMATV2_DEBIAN_MIRROR:-$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' |
                                    grep -m1 '/debian/$' || true)}"
mirror="${mirror%/}"
[ -n "${mirror}" ] || { echo "sysroot: no Debian archive in apt's sources; set FORMATV2_DEBIAN_MIRROR" >&2; exit 1; }
# Build: C and C++ headers and libraries, cJSON, googletest's sources (the tests build it with
# the same headers and string ABI). Run: libcjson1, libstdc++6.
packages=libc6-dev,libstdc++-10-dev,libgcc-10-dev,libcjson-dev,libcjson1,libstdc++6,googletest
done_mark="${root}/.formatv2-root-done"

if [ -f "${done_mark}" ] && [ "$(cat "${done_mark}")" = "${packages}" ]; then
  echo "sysroot: ${root} is ready"
  exit 0
fi
command -v debootstrap >/dev/null || { echo "sysroot: debootstrap missing (scripts/setup.sh)" >&2; exit 1; }
if [ "${arch}" = amd64 ] && { [ "$(dpkg --print-architecture)" != amd64 ] || [ "$(id -u)" != 0 ]; }; then
  echo "sysroot: the amd64 root is made on an amd64 machine as root (its second stage runs in a chroot)" >&2
  exit 1
fi

rm -rf "${root}"
mkdir -p "${root}"
debootstrap --foreign --merged-usr --arch="${arch}" --variant=minbase --include="${packages}" \
  bullseye "${root}" "${mirror}"
if [ "${arch}" = amd64 ]; then
  # The second stage mounts /proc and /sys inside the root while it runs; a failed run must
  # not leave them mounted under build/.
  trap 'umount -l "${root}/proc" "${root}/sys" 2>/dev/null || true' EXIT
  chroot "${root}" /debootstrap/debootstrap --second-stage
  umount -l "${root}/proc" "${root}/sys" 2>/dev/null || true
  trap - EXIT
else
  # The first stage unpacks only the essential packages; the rest wait in apt's cache. The
  # root has a merged /usr (/lib is a link to usr/lib), which the unpacking keeps: qemu-arm -L
  # then finds every library of the root under either name, never the build machine's copy.
  for deb in "${root}"/var/cache/apt/archives/*.deb; do
    dpkg-deb --fsys-tarfile "${deb}" | tar -x --keep-directory-symlink -C "${root}"
  done
  rm -f "${root}"/var/cache/apt/archives/*.deb
  # Device nodes made by debootstrap would stand in for this machine's under qemu: a ptmx
  # outside a devpts mount opens no terminal. Without them qemu uses this machine's /dev.
  rm -rf "${root:?}"/dev/*
fi
# Links that point at absolute paths would leave the root: make them relative (libc.so's
# linker scripts name /lib/... and /usr/lib/..., which the linker already maps into a sysroot).
find "${root}" -type l -lname '/*' | while read -r link; do
  target=$(readlink "${link}")
  ln -sfn "$(realpath -ms --relative-to="$(dirname "${link}")" "${root}${target}")" "${link}"
done
# The root's own loader cache: without one, qemu would hand the loader this machine's.
ldconfig -r "${root}"
echo "${packages}" >"${done_mark}"
echo "sysroot: ${root} made"
