#!/bin/bash
# SPDX-License-Identifier: MIT
# packages.sh GROUP...: installs what the groups need of Debian 12 and the machine lacks.
# Groups: build (the programs), test (./test beside that), bench (./benchmarks/run), fuzz (./fuzz/run),
# package (packaging/build_packages.sh).
set -euo pipefail

declare -A packages=(
    [build]="g++ cmake ninja-build pkg-config libboost-dev libcli11-dev liblua5.2-dev libncurses-dev libspdlog-dev
             libutfcpp-dev nlohmann-json3-dev"
    [test]="clang-format groff-base libgtest-dev libgmock-dev python3 python3-pyte shellcheck"
    [bench]="libbenchmark-dev"
    [package]="dpkg-dev file lintian python3"
    [fuzz]="clang libclang-rt-14-dev"
)

wanted=()
for group in "$@"; do
    [ -n "${packages[$group]:-}" ] || { echo "packages.sh: no group '$group'" >&2; exit 2; }
    read -r -d '' -a names <<<"${packages[$group]}" || true
    wanted+=("${names[@]}")
done

missing=()
for name in "${wanted[@]}"; do
    status=$(dpkg-query -W -f '${Status}' "$name" 2>/dev/null || true)
    [ "$status" = "install ok installed" ] || missing+=("$name")
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
        echo "Please install as root: apt-get install ${missing[*]}" >&2
        exit 1
    }
    as_root=(sudo)
fi

echo "Installing: ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
install() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=900 \
        install -y --no-install-recommends "${missing[@]}" >"$log" 2>&1
}
# A fresh machine has no package lists yet, an old one has stale ones.
install || { "${as_root[@]}" apt-get -q -o DPkg::Lock::Timeout=900 update >"$log" 2>&1 && install; } || {
    cat "$log" >&2
    echo "packages.sh: apt-get could not install: ${missing[*]}" >&2
    exit 1
}
