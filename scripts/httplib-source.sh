#!/usr/bin/env bash
# Fetches Debian's source package of cpp-httplib, at the version apt offers for
# libcpp-httplib-dev and with Debian's patches applied, and keeps its single header in
# build/deps/cpp-httplib/. Builds for a device root or another architecture, where Debian 11 has
# no cpp-httplib, compile the browser preview with it as a header-only library. apt checks the
# archive's signatures, through a source list of its own that leaves the system's alone.
# Idempotent: nothing is fetched when that version is already there.
set -euo pipefail
cd "$(dirname "$0")/.."

version=$(apt-cache policy libcpp-httplib-dev | sed -n 's/^ *Candidate: //p')
out=build/deps/cpp-httplib
if [ -f "${out}/version" ] && [ "$(cat "${out}/version")" = "${version}" ]; then exit 0; fi

apt_dir=$(realpath -m build/deps/apt)
rm -rf "${apt_dir}" "${out}"
mkdir -p "${apt_dir}/lists/partial" "${apt_dir}/cache/archives/partial" "${apt_dir}/src" "${out}"
keyring=/usr/share/keyrings/debian-archive-keyring.gpg
for suite in "debian bookworm" "debian bookworm-updates" "debian-security bookworm-security"; do
  set -- ${suite}
  echo "deb-src [signed-by=${keyring}] http://deb.debian.org/$1 $2 main"
done >"${apt_dir}/sources.list"
options=(-o "Dir::Etc::SourceList=${apt_dir}/sources.list" -o Dir::Etc::SourceParts=/dev/null
         -o "Dir::State::Lists=${apt_dir}/lists" -o "Dir::Cache=${apt_dir}/cache"
         -o APT::Sandbox::User=root)
apt-get "${options[@]}" update >/dev/null
(cd "${apt_dir}/src" && apt-get "${options[@]}" source "cpp-httplib=${version}" >/dev/null)
cp "${apt_dir}"/src/cpp-httplib-*/httplib.h "${apt_dir}"/src/cpp-httplib-*/LICENSE "${out}/"
echo "${version}" >"${out}/version"
rm -rf "${apt_dir}"
