#!/usr/bin/env bash
# in_sandbox.sh STAGE UID:GID DIR COMMAND...: runs as root of new user and mount namespaces (tools/sandbox.sh),
# lays out what the service finds on a device, and becomes COMMAND.
#   /usr/setting, /usr/setting_bak   DIR/setting and DIR/setting_bak
#   /mnt/kestrel                     DIR
#   /etc/passwd, /etc/group          the machine's own, with UID:GID as the user sshd
# STAGE is an empty directory. Every other file is the machine's own.
set -euo pipefail

stage=$1
uid=${2%:*}
gid=${2#*:}
dir=$3
shift 3

# add_to PARENT NAME=SOURCE...: PARENT shows what it showed before, and SOURCE as NAME, without a
# mount point being made on the machine.
add_to() {
    local parent=$1 copy="$stage$1" entry
    shift
    mkdir -p "$copy"
    for entry in "$parent"/* "$parent"/.[!.]*; do
        if [ -L "$entry" ]; then
            cp -P "$entry" "$copy/"
        elif [ -d "$entry" ]; then
            mkdir "$copy/${entry##*/}"
            mount --rbind "$entry" "$copy/${entry##*/}"
        elif [ -e "$entry" ]; then
            touch "$copy/${entry##*/}"
            mount --bind "$entry" "$copy/${entry##*/}"
        fi
    done
    for entry in "$@"; do
        mkdir -p "$copy/${entry%%=*}"
        mount --rbind "${entry#*=}" "$copy/${entry%%=*}"
    done
    mount --rbind "$copy" "$parent"
}

add_user() {
    { grep -v '^sshd:' /etc/passwd || true; } >"$stage/passwd"
    echo "sshd:x:$uid:$gid:service:/nonexistent:/usr/sbin/nologin" >>"$stage/passwd"
    { grep -v '^sshd:' /etc/group || true; } >"$stage/group"
    echo "sshd:x:$gid:" >>"$stage/group"
    mount --bind "$stage/passwd" /etc/passwd
    mount --bind "$stage/group" /etc/group
}

mount -t tmpfs -o mode=755 sandbox "$stage"
add_user
add_to /mnt "kestrel=$dir"
add_to /usr "setting=$dir/setting" "setting_bak=$dir/setting_bak"
exec "$@"
