#!/usr/bin/env bash
# container.sh PREFIX: a client in a container, with a root directory of its own, whose files are in that root. The
# service and the application manager run outside of it, at KESTREL_ROOT; PREFIX is where `appcfg` is installed.
set -euo pipefail

if [ "${2:-}" != inside ]; then
    here=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")
    root=$(mktemp -d)
    mkdir "$root"/{usr,proc,setting,client,run}
    for link in bin lib lib32 lib64 libx32; do
        [ ! -L "/$link" ] || cp -P "/$link" "$root/"
    done
    cp "$here/settings/radio.default.json" "$root/setting/"
    cp "$here/container/radio.json" "$root/item.json"
    chmod -R a+rwX "$root" # the service's user writes here
    unshare --user --map-root-user --mount -- "${BASH_SOURCE[0]}" "$(readlink -f "$1")" inside "$root"
    echo "outside, setting/ in its root has: $(ls -m "$root/setting"), $(grep -o '"volume" *: *[^,]*' "$root/setting/radio.json")"
    rm -rf "$root" 2>/dev/null || true # an ordinary caller leaves what belongs to others
    exit
fi

# Root of the container's namespaces: what it needs of the machine becomes visible below its root.
root=$3
mount --rbind /usr "$root/usr"
mount --rbind /proc "$root/proc"
mount --bind "$1" "$root/client"
mount --bind "$KESTREL_ROOT" "$root/run"
export KESTREL_ROOT=/run
printf 'set volume=3\nget volume\n' | chroot "$root" /client/bin/appcfg shell /item.json
