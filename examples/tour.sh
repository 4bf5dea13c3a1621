#!/usr/bin/env bash
# A client's day with the service: every step says what it does, shows the command and what it printed, and
# checks the result. Needs the running service's directory in KESTREL_ROOT and `appcfg` on the PATH; the
# service sees $KESTREL_ROOT/setting as /usr/setting and $KESTREL_ROOT/setting_bak as /usr/setting_bak.
set -euo pipefail

HERE=$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")" && pwd)
ROOT=${KESTREL_ROOT:?the directory of a running service}
FILE=$ROOT/setting/network.json
BACKUP=$ROOT/setting_bak/network.json
DEFAULT=$ROOT/setting/network.default.json
SECONDS_TO_WAIT=20
MARK=---tour-mark---

REPLY_TEXT= # what the last command printed
STEP=0

fail() {
    printf '\ntour: %s\n' "$1" >&2
    exit 1
}

step() {
    STEP=$((STEP + 1))
    printf '\n%d. %s\n' "$STEP" "$1"
}

indented() {
    sed 's/^/   /'
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

# expect TEXT: the last command printed exactly this.
expect() {
    [ "$REPLY_TEXT" = "$1"$'\n' ] || fail "'$1' was expected"
}

show() {
    printf '   $ cat %s\n' "$1"
    indented <"$1"
    [ -z "$(tail -c 1 "$1")" ] || echo
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

is_refused() {
    local status=0
    REPLY_TEXT=$(appcfg get tour/network hostname 2>&1) || status=$?
    [ $status -eq 1 ]
}

step "The factory settings of a device, as the default file of an item"
mkdir -p "$ROOT/setting" "$ROOT/setting_bak"
rm -f "$FILE" "$BACKUP"
cp "$HERE/tour/network.default.json" "$DEFAULT"
chmod 644 "$DEFAULT"
show "$DEFAULT"

step "A client connects and creates the item; its file is missing and comes from the default"
printf '   $ cat %s\n' "$HERE/tour/network.json"
indented <"$HERE/tour/network.json"
coproc APPCFG { exec appcfg shell 2>&1; }
SHELL_PID=$APPCFG_PID TO_SHELL=${APPCFG[1]} FROM_SHELL=${APPCFG[0]}
ask "create '$HERE/tour/network.json'"
expect "created tour/network/0"
until_true "the file made from the default" cmp -s "$FILE" "$DEFAULT"
show "$FILE"

step "Reading values"
ask "get hostname mtu dns[1] wifi.ssid"
expect $'device\n1500\n198.51.100.53\nfactory'
ask "get --json hostname wifi.enabled"
expect '{"hostname":"device","wifi.enabled":"true"}'

step "Setting two values in one request; each is stored as a string"
ask "set hostname=kitchen wifi.ssid='upstairs net'"
expect "set 2 values"
ask "get hostname wifi.ssid"
expect $'kitchen\nupstairs net'

step "The file and its backup on disk have changed"
until_true "the new name in the file" holds "$FILE" '"kitchen"'
until_true "the new name in the backup" holds "$BACKUP" '"kitchen"'
show "$FILE"
show "$BACKUP"

step "A raw fragment: any part of the document as text"
ask "raw get wifi"
expect $'{\n  "enabled": true,\n  "ssid": "upstairs net"\n}'

step "Replacing a fragment; raw text may hold the comma and the bar that a set cannot"
ask "raw set wifi.ssid 'upstairs, 5 GHz | guests'"
expect "set 'wifi.ssid'"
ask "get wifi.ssid"
expect "upstairs, 5 GHz | guests"
until_true "the fragment in the file" holds "$FILE" "5 GHz | guests"

step "Another client reaches the item by its handle"
printf '   $ appcfg get tour/network mtu\n'
REPLY_TEXT=$(appcfg get tour/network mtu)$'\n'
printf '%s' "$REPLY_TEXT" | indented
expect "1500"

step "A request that the service refuses: a key that the document does not have"
ask "set hostnam=typo"
[[ $REPLY_TEXT == *"status 400"* ]] || fail "a refusal with status 400 was expected"

step "Restoring the defaults puts the default file in place of file and backup"
ask "restore"
expect "restored tour/network/0"
ask "get hostname wifi.ssid"
expect $'device\nfactory'
until_true "the default in the file" cmp -s "$FILE" "$DEFAULT"
until_true "the default in the backup" cmp -s "$BACKUP" "$DEFAULT"

step "The client closes its connection; the item ends with it, and its files stay"
printf '   appcfg> quit\n'
printf 'quit\n' >&"$TO_SHELL"
STATUS=0
wait "$SHELL_PID" || STATUS=$?
[ $STATUS -eq 1 ] || fail "the shell ended with status $STATUS, and not with 1 for its one refused command"
until_true "the end of the item" is_refused
printf '   $ appcfg get tour/network hostname\n   %s\n   (exit status 1)\n' "$REPLY_TEXT"
[[ $REPLY_TEXT == *"status 404"* ]] || fail "status 404 was expected"
[ -s "$FILE" ] || fail "the file is gone"

printf '\nThat was a whole day: %d steps, each of them checked.\n' "$STEP"
