#!/usr/bin/env bash
# A client's day with a JSON item: from its default to its end.
# shellcheck source=examples/tour/helpers.sh
. "$(dirname "$0")/helpers.sh"

FILE=$SETTING/network.json
BACKUP=$BACKUPS/network.json
DEFAULT=$SETTING/network.default.json

chapter "A day with a JSON item"

step "The factory settings of a device, as the default file of an item"
begin_with network.default.json network.json
show "$DEFAULT"

step "A client connects and creates the item; its file is missing and comes from the default"
show "$ITEMS/network.json"
open_shell
create "$ITEMS/network.json" tour/network/0
cmp -s "$FILE" "$DEFAULT" || fail "the file is not the default"
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
both_hold network.json '"kitchen"'
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
both_hold network.json "5 GHz | guests"

step "Another client reaches the item by its handle"
run appcfg get tour/network mtu
expect "1500"

step "A request that the service refuses: a key that the document does not have"
ask "set hostnam=typo"
expect_refusal 400

step "Restoring the defaults puts the default file in place of file and backup"
ask "restore"
expect "restored tour/network/0"
ask "get hostname wifi.ssid"
expect $'device\nfactory'
cmp -s "$DEFAULT" "$FILE" || fail "the file is not the default"
cmp -s "$DEFAULT" "$BACKUP" || fail "the backup is not the default"

step "The client closes its connection; the item ends with it, and its files stay"
close_shell 1 # for the one command that was refused
until_true "the end of the item" is_gone tour/network
printf '   $ appcfg raw get tour/network\n   %s\n   (exit status 1)\n' "$REPLY_TEXT"
[ -s "$FILE" ] || fail "the file is gone"
