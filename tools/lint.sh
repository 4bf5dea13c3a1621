# shellcheck shell=bash
# ./dev lint: formatting, clang-tidy, shellcheck, file lengths. Sourced by ./dev.

# No file may be longer: a reader takes in one at a time.
LINT_MAX_LINES=600

verb_lint() {
    install_packages build test lint
    cd "$ROOT" || exit
    local failed=no check
    for check in lint_format lint_shell lint_length lint_tidy; do
        say "$check"
        "$check" || failed=yes
    done
    [ "$failed" = no ] || fail "lint: failed"
    say "lint: clean"
}

lint_files() {
    git ls-files --cached --others --exclude-standard -- "$@"
}

lint_format() {
    lint_files '*.c' '*.cpp' '*.h' | xargs -r clang-format-14 --dry-run -Werror
}

lint_shell() {
    { lint_files '*.sh' && echo dev && echo .ci/run; } | xargs -r shellcheck -x
}

lint_length() {
    lint_files | xargs -r wc -l | awk -v most=$LINT_MAX_LINES \
        '$2 != "total" && $1 > most { print $2 ": " $1 " lines, more than " most; bad = 1 } END { exit bad }'
}

# The commands of a configuration of its own: nothing needs to be built for it.
lint_tidy() {
    local sources
    mkdir -p build
    cmake --preset dev -B build/lint >build/lint.configure.log || {
        cat build/lint.configure.log
        return 1
    }
    mapfile -t sources < <(lint_files '*.c' '*.cpp' | sed "s|.*|^$ROOT/&\$|")
    run-clang-tidy-14 -p build/lint -quiet "${sources[@]}" >build/lint.log 2>&1 || {
        grep -vE '^(clang-tidy-14 |[0-9]+ warnings? generated)' build/lint.log
        return 1
    }
}
