#!/usr/bin/env bash
# brief_test.sh PROGRAM ARGUMENT...: a short form of crash or soak in the sandbox. 77: the machine allows none.
set -euo pipefail
ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
for part in common "$1" sandbox; do
    # shellcheck disable=SC1090
    . "$ROOT/tools/$part.sh"
done
if ! reason=$( (sandbox_check_here) 2>&1); then
    echo "$reason"
    exit 77
fi
"$1_built" "${@:2}"
