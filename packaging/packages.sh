#!/bin/bash
# SPDX-License-Identifier: MIT
# packages.sh [--list] GROUP...: installs the Debian 12 packages that the groups need and the machine
# lacks; with --list it only lists the packages. Groups: build (the programs), run (the same for ./run, by a
# faster compiler); test, arm and coverage (what ./test, ./test --arm and ./test --coverage need in addition);
# example (the servers of examples/*.sh), bench (./benchmarks/run), fuzz (./fuzz/run), package
# (packaging/build_packages.sh).
set -euo pipefail

basis="cmake ninja-build pkg-config
       libboost-dev libcli11-dev libcrypt-dev libcurl4-openssl-dev libidn2-dev liblua5.2-dev
       libmodbus-dev libncurses-dev libspdlog-dev libsqlite3-dev libsqlitecpp-dev libssl-dev
       libutfcpp-dev nlohmann-json3-dev"
declare -A packages=(
    [build]="g++ $basis"
    [run]="clang $basis"
    [test]="clang clang-format clang-tidy cppcheck groff-base shellcheck python3 python3-pymodbus
            python3-pyte python3-serial python3-serial-asyncio libgtest-dev libgmock-dev
            gammu gammu-smsd gnokii-cli libgammu-dev
            exim4-daemon-light libfaketime mpack mutt openssl procps prometheus python3-aiosmtpd spamassassin
            swaks systemd
            chromium chromium-driver fonts-noto-color-emoji python3-selenium"
    [arm]="g++-aarch64-linux-gnu g++-arm-linux-gnueabihf qemu-user"
    [coverage]="gcovr"
    [example]="python3 python3-aiosmtpd"
    [bench]="chromium chromium-driver exim4-daemon-light gammu libbenchmark-dev libgammu-dev
             python3-selenium"
    [package]="dpkg-dev file lintian python3"
    [fuzz]="clang libclang-rt-14-dev libgammu-dev"
)

list=no
if [ "${1:-}" = --list ]; then
    list=yes
    shift
fi

wanted=()
for group in "$@"; do
    [ -n "${packages[$group]:-}" ] || { echo "packages.sh: no group '$group'" >&2; exit 2; }
    read -r -d '' -a names <<<"${packages[$group]}" || true
    wanted+=("${names[@]}")
done
if [ $list = yes ]; then
    printf '%s\n' "${wanted[@]}"
    exit 0
fi

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
# Some of them are daemons: none may start, or replace the mail server that the machine has.
policy=/usr/sbin/policy-rc.d
if [ ! -e $policy ]; then
    trap '"${as_root[@]}" rm -f "$log" $policy' EXIT
    printf '#!/bin/sh\nexit 101\n' | "${as_root[@]}" tee $policy >/dev/null
    "${as_root[@]}" chmod 755 $policy
fi
install() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=900 \
        install -y --no-install-recommends --no-remove "${missing[@]}" >"$log" 2>&1
}
# A fresh machine has no package lists yet; an old one may have outdated lists.
install || { "${as_root[@]}" apt-get -q -o DPkg::Lock::Timeout=900 update >"$log" 2>&1 && install; } || {
    cat "$log" >&2
    echo "packages.sh: apt-get could not install: ${missing[*]}" >&2
    exit 1
}
