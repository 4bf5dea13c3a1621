#!/usr/bin/env bash
# An INI item: its file is read, and never written.
# shellcheck source=examples/tour/helpers.sh
. "$(dirname "$0")/helpers.sh"

FILE=$SETTING/board.ini

file_is_unchanged() {
    run cmp "$FILE" "$ITEMS/board.ini" || fail "the file has changed"
}

chapter "An INI item is read-only on disk"

step "The item and its file"
install -m 644 "$ITEMS/board.ini" "$FILE"
show "$ITEMS/board.json"
open_shell
create "$ITEMS/board.json" tour/board/0
show "$FILE"

step "Keys are SECTION.NAME, in either case"
ask "get name serial.speed SERIAL.Device"
expect $'board\n9600\n/dev/ttyS0'

step "A set changes what clients see, and not the file"
ask "set serial.speed=115200"
expect "set 1 value"
run appcfg get tour/board serial.speed
expect "115200"
file_is_unchanged

step "A raw set writes NAME=VALUE into a section; the name must also exist outside of the sections"
ask "raw set serial name=console"
expect "set 'serial'"
ask "get serial.name name"
expect $'console\nboard'
ask "raw set serial speed=4800"
expect_refusal 400

step "There is nothing to restore"
ask "restore"
expect_refusal 400

step "The item ends, and its changes with it: created again, it has the file's values"
close_shell 1 # for what was refused
until_true "the end of the item" is_gone tour/board
file_is_unchanged
open_shell
create "$ITEMS/board.json" tour/board/0
ask "get serial.speed"
expect "9600"
close_shell 0
