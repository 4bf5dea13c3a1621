#!/usr/bin/env bash
# brief_test.sh BUILD: a soak of ten seconds. 77: the machine allows no sandbox.
set -euo pipefail
ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=tools/common.sh
. "$ROOT/tools/common.sh"
# shellcheck source=tools/soak.sh
. "$ROOT/tools/soak.sh"
# shellcheck source=tools/sandbox.sh
. "$ROOT/tools/sandbox.sh"
if ! reason=$( (sandbox_check_here) 2>&1); then
    echo "$reason"
    exit 77
fi
soak_built "$1" 10
