#!/usr/bin/env bash
# languages_test.sh BUILD: the C and Python interfaces against a service in a sandbox. 77: no sandbox.
set -euo pipefail
ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=tools/common.sh
. "$ROOT/tools/common.sh"
# shellcheck source=tools/sandbox.sh
. "$ROOT/tools/sandbox.sh"
if ! reason=$( (sandbox_check_here) 2>&1); then
    echo "$reason"
    exit 77
fi
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
mkdir "$dir/setting" "$dir/setting_bak"
export KESTREL_ROOT=$dir LD_LIBRARY_PATH=$1/lib PYTHONPATH=$ROOT/client/python PL_LOG_LEVEL=9
(sandbox_enter "$dir" python3 "$ROOT/tests/languages/languages_test.py" "$1/bin/c_client" \
    "$1/bin/kestrel_host" "$1/lib/libapp_cfg_mgmt_service.so")
# What programs may have been linked against stays, by name.
nm -D --defined-only "$1/lib/libappcfg.so.1" | awk '/ T / { sub(/@.*/, "", $3); print $3 }' | sort |
    diff "$ROOT/client/c/libappcfg.symbols" -
