# shellcheck shell=bash
# What the chapters of the tour share: numbered steps, a shell that holds items, checks. Sourced by each.
# The service sees $SETTING as /usr/setting and $BACKUPS as /usr/setting_bak.
set -euo pipefail

ITEMS=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")" && pwd)
SETTING=${KESTREL_ROOT:?the directory of a running service}/setting
BACKUPS=$KESTREL_ROOT/setting_bak
# Closed to others: keys are here, and copies of item files that name them.
# shellcheck disable=SC2034 # used by the chapters
PRIVATE=$KESTREL_ROOT/tour
SECONDS_TO_WAIT=20
MARK=---tour-mark---

REPLY_TEXT= # what the last command printed
CHAPTER=
STEP=0
# The shell that open_shell started.
SHELL_PID=
TO_SHELL=
FROM_SHELL=

fail() {
    printf '\ntour: %s\n' "$1" >&2
    exit 1
}

# chapter TITLE: its number comes from the file's name.
chapter() {
    CHAPTER=$(basename "$0")
    CHAPTER=${CHAPTER%%_*}
    printf '\n=== %s. %s ===\n' "$CHAPTER" "$1"
}

step() {
    STEP=$((STEP + 1))
    printf '\n%d.%d %s\n' "$CHAPTER" "$STEP" "$1"
}

indented() {
    sed 's/^/   /'
}

show() {
    printf '   $ cat %s\n' "$1"
    indented <"$1"
    [ -z "$(tail -c 1 "$1")" ] || echo
}

# run COMMAND...: shows an ordinary command and what it prints, which is kept in REPLY_TEXT. Its status is
# the command's.
run() {
    local status=0
    printf '   $ %s\n' "$*"
    REPLY_TEXT=$("$@" 2>&1)$'\n' || status=$?
    [ "$REPLY_TEXT" = $'\n' ] || printf '%s' "$REPLY_TEXT" | indented
    return $status
}

# open_shell: an appcfg shell on a connection of its own.
open_shell() {
    coproc APPCFG { exec appcfg shell 2>&1; }
    SHELL_PID=$APPCFG_PID TO_SHELL=${APPCFG[1]} FROM_SHELL=${APPCFG[0]}
}

# ask COMMAND: runs it in the shell that holds the item, up to the mark that follows its output.
ask() {
    local line
    printf '   appcfg> %s\n' "$1"
    printf '%s\necho %s\n' "$1" "$MARK" >&"$TO_SHELL" || fail "the appcfg shell has ended"
    REPLY_TEXT=
    while IFS= read -r -t "$SECONDS_TO_WAIT" line <&"$FROM_SHELL"; do
        if [ "$line" = "$MARK" ]; then
            printf '%s' "$REPLY_TEXT" | indented
            return
        fi
        REPLY_TEXT+=$line$'\n'
    done
    printf '%s' "$REPLY_TEXT" | indented
    fail "the shell ended, or did not answer in time"
}

# close_shell STATUS: ends the connection, and with it the items; the shell's exit status is checked.
close_shell() {
    local status=0
    printf '   appcfg> quit\n'
    printf 'quit\n' >&"$TO_SHELL"
    wait "$SHELL_PID" || status=$?
    [ $status -eq "$1" ] || fail "the shell ended with status $status, and not with $1"
}

# create ITEM.json HANDLE: the shell creates the item.
create() {
    ask "create '$1'"
    expect "created $2"
}

# expect TEXT: the last command printed exactly this.
expect() {
    [ "$REPLY_TEXT" = "$1"$'\n' ] || fail "'$1' was expected"
}

# expect_refusal STATUS: the service refused the last command with this status.
expect_refusal() {
    [[ $REPLY_TEXT == *"status $1"* ]] || fail "a refusal with status $1 was expected"
}

# until_true WHAT COMMAND...: polls, with a deadline.
until_true() {
    local what=$1 deadline=$((SECONDS + SECONDS_TO_WAIT))
    shift
    until "$@"; do
        [ $SECONDS -lt $deadline ] || fail "$what: not within $SECONDS_TO_WAIT seconds"
        sleep 0.02
    done
}

holds() {
    grep -qF -- "$2" "$1" 2>/dev/null
}

# both_hold NAME TEXT: a set is on disk soon after its reply, in the file and in the backup.
both_hold() {
    until_true "'$2' in the file" holds "$SETTING/$1" "$2"
    until_true "'$2' in the backup" holds "$BACKUPS/$1" "$2"
}

# is_gone HANDLE: the service has no such item; how it says so is left in REPLY_TEXT.
is_gone() {
    local status=0
    REPLY_TEXT=$(appcfg raw get "$1" 2>&1) || status=$?
    [ $status -eq 1 ] && [[ $REPLY_TEXT == *"status 404"* ]]
}

# begin_with DEFAULT NAME: only the item's default file is there, neither file nor backup.
begin_with() {
    mkdir -p "$SETTING" "$BACKUPS"
    rm -f "$SETTING/$2" "$BACKUPS/$2"
    install -m 644 "$ITEMS/$1" "$SETTING/$1"
}

# openssl_cipher -e|-d KEY_FILE IN: to standard output. For a demonstration: others on the machine can read
# a key that stands in a command line.
openssl_cipher() {
    local digits
    digits=$(<"$2")
    openssl enc "$1" -aes-256-cbc -K "${digits:0:64}" -iv "${digits:64:32}" -in "$3" 2>/dev/null
}

# decrypts_to KEY_FILE FILE TEXT: whether the file, decrypted with the key, holds the text.
decrypts_to() {
    openssl_cipher -d "$1" "$2" | grep -caF -- "$3" >/dev/null
}
