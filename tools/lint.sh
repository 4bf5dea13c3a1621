# shellcheck shell=bash
# ./dev lint: formatting, clang-tidy, shellcheck, lengths of files, share of the tests, reference. Sourced by ./dev.

# No file may be longer: a reader takes in one at a time.
LINT_MAX_LINES=450
# Per cent of the code lines that are tests, fuzz targets and endurance programs: a third.
LINT_MAX_TEST_SHARE=33.3

verb_lint() {
    [ $# -eq 0 ] || wrong "usage: ./dev lint"
    install_packages build test lint docs bench
    cd "$ROOT" || exit
    local failed=no check
    for check in lint_format lint_shell lint_length lint_share lint_reference lint_tidy; do
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

# Counts lines that are neither blank nor comment; the inputs of fuzz targets are no code.
lint_share() {
    lint_files '*.c' '*.cpp' '*.h' '*.in' '*.py' '*.sh' '*.cmake' '*CMakeLists.txt' dev .ci/run |
        grep -v /corpus/ | awk -v most=$LINT_MAX_TEST_SHARE '
            {
                isTest = /^(tests|fuzz|endurance)\//
                comment = /\.(c|cpp|h)$/ ? "^ *//" : "^ *#"
                while ((getline line < $0) > 0)
                    lines[isTest] += line ~ /[^ ]/ && line !~ comment
                close($0)
            }
            END {
                share = 100 * lines[1] / (lines[0] + lines[1])
                printf "code lines: tests %d, product %d, share of the tests %.1f %%, at most %.1f %%\n", lines[1], lines[0], share, most
                exit share > most
            }'
}

# The reference is made without a warning.
lint_reference() {
    make_build_directory
    mkdir -p build/docs
    doxygen docs/Doxyfile
}

# Uses the commands of a configuration of its own: nothing needs to be built. A file that was clean is not
# looked at again until it, a header or the rules change.
lint_tidy() {
    make_build_directory
    mkdir -p build/lint/clean
    cmake --preset dev -B build/lint -DACM_BENCH=ON >build/lint.configure.log || {
        cat build/lint.configure.log
        return 1
    }
    local rules
    rules=$({ lint_files '*.h' '*.clang-tidy' '*CMakeLists.txt' 'cmake/*' && echo build/lint/compile_commands.json; } |
        xargs cat | sha256sum)
    lint_compiled | while read -r file; do
        printf '%s\n%s\n' "$file" "build/lint/clean/$(echo "$rules" | cat - "$file" | sha256sum | cut -c1-64)"
    done | xargs -r -n 2 -P "$(nproc)" tools/lint_file.sh
}

# The sources that the configuration compiles.
lint_compiled() {
    sed -n "s|^ *\"file\": \"$ROOT/\(.*\)\",*\$|\1|p" build/lint/compile_commands.json | sort -u
}
