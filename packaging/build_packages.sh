#!/bin/bash
# SPDX-License-Identifier: MIT
# build_packages.sh: builds corvane_*.deb, corvane-mail_*.deb and corvane-dev_*.deb in
# build/release/packages, and checks them with lintian. It installs missing packages.
set -euo pipefail
cd "$(dirname "$0")/.."

packaging/packages.sh build package
cmake --preset release >/dev/null
cmake --build --preset release
rm -rf build/release/packages
(cd build/release && cpack --config CPackConfig.cmake)
lintian --fail-on error --tag-display-limit 0 build/release/packages/*.deb
ls -l build/release/packages/*.deb
