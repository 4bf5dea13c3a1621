#!/usr/bin/env bash
# The same day with an XML item: what its keys address, and what a raw set puts where.
# shellcheck source=examples/tour/helpers.sh
. "$(dirname "$0")/helpers.sh"

FILE=$SETTING/house.xml
DEFAULT=$SETTING/house.default.xml

chapter "The same day with an XML item"

step "Its default, and its creation from there"
begin_with house.default.xml house.xml
show "$DEFAULT"
open_shell
create "$ITEMS/house.json" tour/house/0
cmp -s "$FILE" "$DEFAULT" || fail "the file is not the default"

step "Levels and indexes: [0] is the element itself, [1] the next one of the same name"
ask "get floor.room.lamp floor.room[1].lamp floor.room[1].lamp[1] floor[1].room.lamp"
expect $'off\non\noff\ndim'

step "Selectors: an element by its attribute, and an attribute itself"
ask "get floor.room[@id=hall].lamp \"floor.room[@name='front hall'].lamp[1]\" floor[1].room[@id] [@version]"
expect $'on\noff\ncellar\n2'

step "Setting a text and an attribute; both are on disk"
ask "set floor.room[@id=hall].lamp=bright [@version]=3"
expect "set 2 values"
both_hold house.xml '<lamp>bright</lamp>'
both_hold house.xml '<house version="3">'

step "A raw fragment is an element with its own tags"
ask "raw get 'floor.room[@id=attic]'"
expect $'<room id="attic">\n\t\t\t<lamp>off</lamp>\n\t\t</room>'

step "A raw set puts an element below the one of the key: in the place of the first child of its name ..."
ask "raw set 'floor.room[@id=hall]' '<lamp state=\"new\">flickers, once | twice</lamp>'"
expect "set 'floor.room[@id=hall]'"
ask "get floor.room[1].lamp floor.room[1].lamp[@state] floor.room[1].lamp[1]"
expect $'flickers, once | twice\nnew\noff'

step "... or behind its last child, when none has that name"
ask "raw set 'floor[1].room' '<shelf><jar>plums</jar><jar>beans</jar></shelf>'"
expect "set 'floor[1].room'"
ask "get floor[1].room.shelf.jar[1]"
expect "beans"
both_hold house.xml "plums"
show "$FILE"

step "Refused, and nothing has changed: no such element, no number, no XML"
ask "get floor.room[7].lamp"
expect_refusal 400
ask "raw get floor.room[7]"
expect_refusal 404
ask "get floor[x].room"
expect_refusal 400
ask "raw set floor '<room><lamp></room>'"
expect_refusal 400
ask "get floor.room[1].lamp[1]"
expect "off"

step "Restoring the defaults; values and fragments both come from the default again"
ask "restore"
expect "restored tour/house/0"
ask "get floor.room[@id=hall].lamp [@version]"
expect $'on\n2'
ask "raw get floor[1].room.lamp"
expect "<lamp>dim</lamp>"
cmp -s "$FILE" "$DEFAULT" || fail "the file is not the default"
close_shell 1 # for what was refused
