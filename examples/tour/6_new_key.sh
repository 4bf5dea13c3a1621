#!/usr/bin/env bash
# The encrypted item of the chapter before, created again; then another key, and none.
# shellcheck source=examples/tour/helpers.sh
. "$(dirname "$0")/helpers.sh"

FILE=$SETTING/vault.xml
BACKUP=$BACKUPS/vault.xml
DEFAULT=$SETTING/vault.default.xml
KEY=$PRIVATE/vault.key
NEW_KEY=$PRIVATE/new.key

# expect_key KEY_FILE TEXT TEXT_OF_DEFAULT: what the key makes of the three files.
expect_key() {
    decrypts_to "$1" "$FILE" "$2" || fail "the file is not in this key"
    decrypts_to "$1" "$BACKUP" "$2" || fail "the backup is not in this key"
    decrypts_to "$1" "$DEFAULT" "$3" || fail "the default is not in this key"
}

chapter "Another key for the encrypted item, and none"

step "Created again, the item still holds its values"
open_shell
create "$PRIVATE/vault.json" tour/vault/0
ask "get door.code"
expect "4711"
expect_key "$KEY" '<code>4711</code>' '<code>0000</code>'

step "Another key: default, file and backup are rewritten with it, each with its own values"
printf '   $ openssl rand -hex 48 >%s\n' "$NEW_KEY"
(umask 077 && openssl rand -hex 48 >"$NEW_KEY")
chmod 644 "$NEW_KEY"
ask "rekey --key-file '$NEW_KEY'"
[[ $REPLY_TEXT == *"chmod 600"* ]] || fail "a key that others can read was taken"
chmod 600 "$NEW_KEY"
ask "rekey --key-file '$NEW_KEY'"
expect "encrypted tour/vault/0"
expect_key "$NEW_KEY" '<code>4711</code>' '<code>0000</code>'
for copy in "$FILE" "$BACKUP" "$DEFAULT"; do
    ! decrypts_to "$KEY" "$copy" '<code>' || fail "$copy still opens with the old key"
    printf '   $ openssl enc -d -aes-256-cbc -K ... -iv ... -in %s\n' "$copy"
    openssl_cipher -d "$NEW_KEY" "$copy" | indented
done

step "The next creation names the new key"
close_shell 2 # for the key that was refused
until_true "the end of the item" is_gone tour/vault
mv "$NEW_KEY" "$KEY"
open_shell
create "$PRIVATE/vault.json" tour/vault/0
ask "get door.code"
expect "4711"

step "Restoring the defaults reads the default with the new key"
ask "restore"
expect "restored tour/vault/0"
ask "get door.code"
expect "0000"
ask "set door.code=1234"
expect "set 1 value"
until_true "the new value in the backup" decrypts_to "$KEY" "$BACKUP" '<code>1234</code>'

step "Back to plain: all three files can be read again"
ask "rekey --plain"
expect "stored plain tour/vault/0"
show "$FILE"
holds "$FILE" '<code>1234</code>' || fail "the file does not hold the value"
cmp -s "$FILE" "$BACKUP" || fail "the backup is not as the file"
show "$DEFAULT"
holds "$DEFAULT" '<code>0000</code>' || fail "the default does not hold its value"
close_shell 0
