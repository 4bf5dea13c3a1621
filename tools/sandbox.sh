# shellcheck shell=bash
# The way into the service's sandbox: a user namespace in which the caller is root with every capability,
# and a mount namespace of its own. Sourced; the machine stays as it is.

# Until its map is written, the first process of a namespace is nobody, who may not even reach the
# checkout; the exec that follows the map makes it root with every capability.
# shellcheck disable=SC2016 # expanded inside
SANDBOX_AWAIT_MAP='
    for (( tries = 1000; tries > 0; tries-- )); do
        read -r _ </proc/self/uid_map && exec "$0" "$@"
        sleep 0.01
    done
    echo "no sandbox: the user map of the namespace could not be written" >&2
    exit 1'

# More namespaces that a caller wants: options of unshare.
SANDBOX_MORE=()

# Number of the service's user sshd where the machine has none: the one that some distributions reserve,
# small enough for every range of subordinate ids.
SANDBOX_SSHD=74

# An ordinary caller is sshd inside, so that what the service writes is the caller's own.
SANDBOX_USER_MAP=("--map-user=$SANDBOX_SSHD" "--map-group=$SANDBOX_SSHD" --map-auto --setuid 0 --setgid 0)

# sandbox_enter DIR COMMAND...: this process becomes COMMAND, inside, with DIR as tools/in_sandbox.sh says.
sandbox_enter() {
    local stage="$ROOT/build/sandbox" user=$SANDBOX_SSHD:$SANDBOX_SSHD
    mkdir -p "$stage"
    [ "$(id -u)" -ne 0 ] || user=$(getent passwd sshd | cut -d: -f3,4 | grep . || echo "$user")
    sandbox_become "$ROOT/tools/in_sandbox.sh" "$stage" "$user" "$@"
}

# sandbox_become COMMAND...: this process becomes COMMAND, as root of new namespaces with every capability.
sandbox_become() {
    sandbox_check_here
    if [ "$(id -u)" -eq 0 ]; then
        sandbox_map_later "$BASHPID"
        exec unshare --user --mount "${SANDBOX_MORE[@]}" -- bash -c "$SANDBOX_AWAIT_MAP" "$@"
    fi
    exec unshare --user "${SANDBOX_USER_MAP[@]}" --mount "${SANDBOX_MORE[@]}" -- "$@"
}

# Root maps every user and group to itself, which needs no range of subordinate ids and leaves all files
# of the machine within reach. The map can only be written from outside, once process $1 is inside.
sandbox_map_later() {
    local pid=$1 before
    before=$(readlink "/proc/$pid/ns/user")
    (
        (
            deadline=$((SECONDS + 10))
            while [ "$(readlink "/proc/$pid/ns/user")" = "$before" ]; do
                [ $SECONDS -lt $deadline ] || exit 1
                sleep 0.01
            done
            awk '{print $1, $1, $3}' /proc/self/gid_map >"/proc/$pid/gid_map"
            awk '{print $1, $1, $3}' /proc/self/uid_map >"/proc/$pid/uid_map"
        ) </dev/null >/dev/null &
    )
}

# Says in one line why this caller can have no sandbox here.
sandbox_check_here() {
    if [ "$(id -u)" -eq 0 ]; then
        sandbox_check
    else
        sandbox_check_ranges
        sandbox_check "${SANDBOX_USER_MAP[@]}"
    fi
}

# Says in one line why there can be no sandbox whose ids are mapped with these options of unshare.
sandbox_check() {
    local error
    error=$(unshare --user "$@" --mount -- true 2>&1) || fail "no sandbox: $(sandbox_refusal "$error")"
}

sandbox_check_ranges() {
    local user file
    user=$(id -un)
    command -v newuidmap >/dev/null || fail "no sandbox: newuidmap is missing; let root run: apt-get install uidmap"
    for file in /etc/subuid /etc/subgid; do
        grep -qsE "^($user|$(id -u)):" "$file" ||
            fail "no sandbox: $file has no range for $user; let root run: usermod $(sandbox_free_range) $user"
    done
}

# The options that give a user the first range that lies behind everyone else's.
sandbox_free_range() {
    { cat /etc/subuid /etc/subgid 2>/dev/null || true; } | awk -F: -v next_id=100000 '
        $2 + $3 > next_id { next_id = $2 + $3 }
        END {
            range = sprintf("%.0f-%.0f", next_id, next_id + 65535)
            print "--add-subuids " range " --add-subgids " range
        }'
}

# The kernel's likely reason to refuse, and what to do about it, in one line.
sandbox_refusal() {
    local setting
    for setting in kernel/unprivileged_userns_clone=0 user/max_user_namespaces=0 \
        kernel/apparmor_restrict_unprivileged_userns=1; do
        if [ "$(cat "/proc/sys/${setting%=*}" 2>/dev/null)" = "${setting#*=}" ]; then
            echo "/proc/sys/${setting%=*} is ${setting#*=}, which forbids user namespaces here"
            return
        fi
    done
    echo "this machine refuses user namespaces (${1//$'\n'/; })"
}
