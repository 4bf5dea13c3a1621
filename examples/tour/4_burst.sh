#!/usr/bin/env bash
# A burst of changes on an item that is saved after a pause: one write, 3 to 4 seconds after the last change.
# shellcheck source=examples/tour/helpers.sh
. "$(dirname "$0")/helpers.sh"

FILE=$SETTING/meter.json
CHANGES=5
MILLISECONDS_BETWEEN=500
# What a busy machine may add to the four seconds.
MILLISECONDS_OF_GRACE=1500

WRITES=()     # what the file was after each write that was seen
LAST_WRITE=   # the same, for the latest
WRITE_TIME=   # when it was seen

now() {
    date +%s%3N
}

# Size and time of the last write; nothing in the moment when the file is truncated and not yet written.
state_of_file() {
    stat -c '%s bytes at %y' "$FILE" | grep -v '^0 ' || true
}

look() {
    local state
    state=$(state_of_file)
    if [ -n "$state" ] && [ "$state" != "$LAST_WRITE" ]; then
        WRITE_TIME=$(now)
        LAST_WRITE=$state
        WRITES+=("$state")
    fi
}

# watch MILLISECONDS: looks at the file all the time.
watch() {
    local end=$(($(now) + $1))
    while [ "$(now)" -lt $end ]; do
        look
        sleep 0.02
    done
}

was_written() {
    look
    [ ${#WRITES[@]} -gt 0 ]
}

chapter "A burst of changes becomes one write"

step "An item with the delay strategy for file and backup"
begin_with meter.default.json meter.json
show "$ITEMS/meter.json"
open_shell
create "$ITEMS/meter.json" tour/meter/0
LAST_WRITE=$(state_of_file)

step "$CHANGES changes, one every $MILLISECONDS_BETWEEN ms; the file stays as it is"
BEFORE_LAST=
for ((reading = 1; reading <= CHANGES; reading++)); do
    BEFORE_LAST=$(now)
    ask "set reading=$reading"
    expect "set 1 value"
    watch $MILLISECONDS_BETWEEN
done
[ ${#WRITES[@]} -eq 0 ] || fail "the file was written during the burst: ${WRITES[*]}"
run cmp "$FILE" "$SETTING/meter.default.json" || fail "the file has changed"

step "Then it is written once, and the backup too"
until_true "the write after the burst" was_written
ELAPSED=$((WRITE_TIME - BEFORE_LAST))
both_hold meter.json "\"reading\": \"$CHANGES\""
watch 1000
printf '   written %d.%03d s after the last change: %s\n' $((ELAPSED / 1000)) $((ELAPSED % 1000)) "${WRITES[*]}"
[ ${#WRITES[@]} -eq 1 ] || fail "one write was expected, and not ${#WRITES[@]}"
[ $ELAPSED -ge 3000 ] || fail "that was too early"
[ $ELAPSED -le $((4000 + MILLISECONDS_OF_GRACE)) ] || fail "that was too late"

step "A change right before the end is not lost: the item saves once more when it ends"
ask "set reading=last"
close_shell 0
both_hold meter.json '"reading": "last"'
