# shellcheck shell=bash
# ./dev docs: the reference of the client interfaces, and the README's picture of a run. Sourced by ./dev.

verb_docs() {
    [ $# -eq 0 ] || wrong "usage: ./dev docs"
    install_packages build sandbox docs
    build_preset release
    cd "$ROOT" || exit
    mkdir -p build/docs
    doxygen docs/Doxyfile
    say "build/docs/html/index.html"
    # shellcheck source=tools/run.sh
    . "$ROOT/tools/run.sh"
    docs_screen >build/docs/run.txt
    docs_picture <build/docs/run.txt >docs/run.svg
    say "docs/run.svg"
}

# What a terminal would show: each command as it is typed, and what it prints.
docs_screen() {
    trap run_end EXIT
    SERVICE_DIR=$(mktemp -d)
    export KESTREL_ROOT=$SERVICE_DIR HOME=$SERVICE_DIR PATH="$ROOT/build/release/bin:$PATH"
    run_start "$ROOT/dev" serve
    cp examples/settings/radio.default.json "$SERVICE_DIR/setting/"
    coproc holder { exec appcfg shell examples/settings/radio.json; }
    local pid=$!
    read -r -u "${holder[0]}" _
    docs_show "appcfg set radio/settings station.name=jazz volume=12"
    docs_show "appcfg get radio/settings station.name volume"
    eval "exec ${holder[1]}>&-"
    wait "$pid"
    docs_show "echo '{\"station\": {' >~/setting/radio.json      # a crash tears the file"
    docs_show "appcfg check examples/settings/radio.json"
    docs_show "appcfg shell examples/settings/radio.json <<<'get station.name volume'"
    run_stop
}

docs_show() {
    printf '$ %s\n' "$1"
    eval "$1"
}

# A picture of the text on standard input; what is typed is bold.
docs_picture() {
    awk '
        { gsub(/&/, "\\&amp;"); gsub(/</, "\\&lt;"); line[NR] = $0 }
        END {
            printf "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 760 %d\">\n", NR * 20 + 24
            print "<style>text { font: 14px monospace; fill: #ddd; white-space: pre } .typed { font-weight: bold; fill: #fff }</style>"
            print "<rect width=\"100%\" height=\"100%\" rx=\"8\" fill=\"#222\"/>"
            for (number = 1; number <= NR; number++)
                printf "<text x=\"16\" y=\"%d\"%s>%s</text>\n", number * 20 + 10, line[number] ~ /^\$/ ? " class=\"typed\"" : "", line[number]
            print "</svg>"
        }'
}
