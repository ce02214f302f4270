#!/bin/bash
# SPDX-License-Identifier: MIT
# service_exposure.sh PROJECT: the service is exposed as little as docs/security.md says, as systemd judges its unit.
set -euo pipefail
stated=$(sed -nE 's/.*sums this up as an exposure of ([0-9.]+) .*/\1/p' "$1/docs/security.md")
found=$(systemd-analyze security --no-pager --offline=true "$1/packaging/corvane@.service" |
    sed -nE 's/.*Overall exposure level for .*: ([0-9.]+) .*/\1/p')
[[ -n $stated && $found == "$stated" ]] || {
    echo "docs/security.md says an exposure of $stated, systemd-analyze $found"
    exit 1
}
