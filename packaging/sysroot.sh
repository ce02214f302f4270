#!/bin/bash
# SPDX-License-Identifier: MIT
# sysroot.sh ARCHITECTURE: fills build/sysroot/ARCHITECTURE (armhf or arm64) with the libraries and
# headers of Debian 12 that a cross build needs: the -dev packages of packages.sh and their
# dependencies. They are unpacked with a separate package state, so no foreign architecture is added
# to this machine, and no administrator is needed.
set -euo pipefail
cd "$(dirname "$0")/.."

architecture=${1:-}
case $architecture in
armhf | arm64) ;;
*)
    echo "usage: packaging/sysroot.sh armhf|arm64" >&2
    exit 2
    ;;
esac

mapfile -t packages < <(packaging/packages.sh --list build test | grep -- '-dev$')
packages+=(libc6-dev)
sysroot=build/sysroot/$architecture
list=$sysroot/packages
[ "$(cat "$list" 2>/dev/null)" != "${packages[*]}" ] || exit 0

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/state/lists/partial" "$work/cache/archives/partial" "$work/tree"
: >"$work/state/status"
cat >"$work/apt.conf" <<CONFIGURATION
APT::Architecture "$architecture";
APT::Architectures { "$architecture"; };
APT::Install-Recommends "false";
APT::Sandbox::User "";
Debug::NoLocking "true";
Dir::State "$work/state";
Dir::State::status "$work/state/status";
Dir::Cache "$work/cache";
CONFIGURATION
export APT_CONFIG=$work/apt.conf

echo "Fetching the libraries for $architecture"
# A list that cannot be fetched does not matter as long as the others contain the packages.
apt-get -q update >"$work/log" 2>&1 || true
apt-get -q install -y --download-only "${packages[@]}" >>"$work/log" 2>&1 || {
    cat "$work/log" >&2
    echo "sysroot.sh: apt-get could not fetch: ${packages[*]}" >&2
    exit 1
}
for package in "$work"/cache/archives/*.deb; do
    dpkg -x "$package" "$work/tree"
done

# Programs must be those of this machine, but the emulator looks for every file in the sysroot first.
rm -rf "$work"/tree/{bin,sbin,usr/bin,usr/sbin,usr/share/doc,usr/share/man}
# Absolute links must stay within the sysroot.
find "$work/tree" -type l -lname '/*' | while read -r link; do
    ln -snfr "$work/tree$(readlink "$link")" "$link"
done

rm -rf "$sysroot"
mkdir -p "$(dirname "$sysroot")"
echo "${packages[*]}" >"$work/tree/packages"
chmod 755 "$work/tree"
mv "$work/tree" "$sysroot"
