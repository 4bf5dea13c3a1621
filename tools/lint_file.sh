#!/usr/bin/env bash
# lint_file.sh SOURCE STAMP: clang-tidy on one file, unless STAMP says that the same was clean before.
set -euo pipefail
[ ! -e "$2" ] || exit 0
if out=$(clang-tidy-14 -p build/lint -quiet "$1" 2>&1); then
    touch "$2"
else
    printf '%s\n' "$out"
    exit 1
fi
