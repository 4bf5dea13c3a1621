#!/usr/bin/env bash
# in_sandbox.sh STAGE DIR COMMAND...: runs as root of new user and mount namespaces (tools/sandbox.sh),
# lays out what the service finds on a device, and becomes COMMAND.
#   /usr/setting, /usr/setting_bak   DIR/setting and DIR/setting_bak
#   /mnt/kestrel                     DIR
#   /etc/passwd, /etc/group          the machine's own, with the user sshd
# STAGE is an empty directory. Every other file is the machine's own.
set -euo pipefail

stage=$1
dir=$2
shift 2

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
        mount --bind "${entry#*=}" "$copy/${entry%%=*}"
    done
    mount --rbind "$copy" "$parent"
}

# The machine's own line where there is one; else the number that some distributions reserve for this
# user, small enough for every range.
add_user() {
    local line
    line=$(grep '^sshd:' /etc/passwd || true)
    if [ -z "$line" ] || ! chown "$(cut -d: -f3 <<<"$line"):$(cut -d: -f4 <<<"$line")" "$stage/owner"; then
        line=sshd:x:74:74:service:/nonexistent:/usr/sbin/nologin
    fi
    { grep -v '^sshd:' /etc/passwd || true; echo "$line"; } >"$stage/passwd"
    { grep -v '^sshd:' /etc/group || true; echo "sshd:x:$(cut -d: -f4 <<<"$line"):"; } >"$stage/group"
    mount --bind "$stage/passwd" /etc/passwd
    mount --bind "$stage/group" /etc/group
}

mount -t tmpfs -o mode=755 sandbox "$stage"
touch "$stage/owner"
add_user
add_to /mnt "kestrel=$dir"
add_to /usr "setting=$dir/setting" "setting_bak=$dir/setting_bak"
exec "$@"
