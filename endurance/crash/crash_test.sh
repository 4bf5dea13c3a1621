#!/usr/bin/env bash
# crash_test.sh BUILD ROUNDS: nothing that the service reported as saved is lost by a crash.
set -euo pipefail
ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=tools/common.sh
. "$ROOT/tools/common.sh"
# shellcheck source=tools/crash.sh
. "$ROOT/tools/crash.sh"
# shellcheck source=tools/sandbox.sh
. "$ROOT/tools/sandbox.sh"
if ! reason=$( (sandbox_check_here) 2>&1); then
    echo "$reason"
    exit 77
fi
crash_built "$@"
