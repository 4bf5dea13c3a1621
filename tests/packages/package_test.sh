#!/usr/bin/env bash
# package_test.sh [DIR]: the packages in DIR, or those that it makes, installed into a root of their own, serve a program that was built
# there against the installed files, outlive an upgrade over themselves, and leave the files when they go.
# The root is this machine's, read through overlays that keep what is written in memory; it has no network.
# 77: the machine allows no such root.
set -euo pipefail
ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=tools/common.sh
. "$ROOT/tools/common.sh"
# shellcheck source=tools/sandbox.sh
. "$ROOT/tools/sandbox.sh"

make_root() {
    local part
    mount -t tmpfs root "$stage"
    mkdir -p "$stage"/{upper,work}/{usr,etc,var} "$stage"/root/{usr,etc,var,proc,dev,run,tmp,mnt,root,packages}
    for part in usr etc var; do
        mount -t overlay overlay -o "lowerdir=/$part,upperdir=$stage/upper/$part,workdir=$stage/work/$part,userxattr" \
            "$stage/root/$part" || exit 77
    done
    for part in bin sbin lib lib32 lib64 libx32; do
        [ ! -L "/$part" ] || cp -P "/$part" "$stage/root/$part"
    done
    mount --rbind /proc "$stage/root/proc"
    mount --rbind /dev "$stage/root/dev"
    mount --bind "$packages" "$stage/root/packages"
    cp -r "$ROOT/tests/packages/." "$stage/root/root"
}

if [ "${1-}" = --inside ]; then
    packages=$2 stage=$3
    make_root
    exec chroot "$stage/root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root PL_LOG_LEVEL=3 bash /root/installed.sh
fi
if ! reason=$( (sandbox_check_here) 2>&1); then
    echo "$reason"
    exit 77
fi
if [ $# -eq 0 ]; then
    # shellcheck source=tools/package.sh
    . "$ROOT/tools/package.sh"
    make_packages "$ROOT/build/package" 2>"$ROOT/build/package.log" || fail "see build/package.log"
    set -- "$ROOT/build/package"
fi
stage=$(mktemp -d)
trap 'rmdir "$stage"' EXIT
SANDBOX_MORE=(--net)
(sandbox_become "${BASH_SOURCE[0]}" --inside "$(readlink -f "$1")" "$stage")
