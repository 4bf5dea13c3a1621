#!/usr/bin/env bash
# An encrypted XML item: clients see values, the disk sees cipher text.
# shellcheck source=examples/tour/helpers.sh
. "$(dirname "$0")/helpers.sh"

FILE=$SETTING/vault.xml
DEFAULT=$SETTING/vault.default.xml
KEY=$PRIVATE/vault.key

chapter "An encrypted XML item"

step "A key, and a default file that is encrypted with it"
begin_with vault.default.xml vault.xml
(umask 077 && mkdir -p "$PRIVATE")
cp "$ITEMS/vault.json" "$PRIVATE/"
show "$ITEMS/vault.default.xml"
printf '   $ openssl rand -hex 48 >%s\n' "$KEY"
(umask 077 && openssl rand -hex 48 >"$KEY")
openssl_cipher -e "$KEY" "$ITEMS/vault.default.xml" >"$DEFAULT"

step "The item, with the key; its file comes from the default"
show "$PRIVATE/vault.json"
open_shell
create "$PRIVATE/vault.json" tour/vault/0
ask "get door.code door[@open]"
expect $'0000\nfalse'

step "A changed value is on disk, as cipher text"
ask "set door.code=4711"
expect "set 1 value"
for copy in "$FILE" "$BACKUPS/vault.xml"; do
    until_true "the new value in $copy" decrypts_to "$KEY" "$copy" '<code>4711</code>'
    ! holds "$copy" code || fail "$copy is plain text"
done
run od -An -tx1 -N 48 "$FILE"

step "The same file with the key, without the service"
printf '   $ openssl enc -d -aes-256-cbc -K ... -iv ... -in %s\n' "$FILE"
openssl_cipher -d "$KEY" "$FILE" | indented

step "The item ends with its connection"
close_shell 0
until_true "the end of the item" is_gone tour/vault
