# shellcheck shell=bash
# ./dev memcheck [GTEST FILTER]: the unit tests under valgrind's memcheck. Sourced by ./dev.

verb_memcheck() {
    [ $# -le 1 ] || wrong "usage: ./dev memcheck [GTEST FILTER]"
    install_packages build test memcheck
    cd "$ROOT" || exit
    build_preset dev
    local area failed=no
    for area in platform document service client; do
        memcheck_area "$area" "${1:-*}" || failed=yes
    done
    [ "$failed" = no ] || fail "memcheck: failed"
    say "memcheck: no leaks, no errors"
}

# Signals are left out: valgrind catches all of them, so that none is ever seen to be left alone.
memcheck_area() {
    say "memcheck $1"
    valgrind --quiet --leak-check=full --show-leak-kinds=definite,indirect,possible --errors-for-leak-kinds=definite,indirect,possible \
        --error-exitcode=9 --fair-sched=yes --max-threads=3000 \
        "build/dev/bin/$1_tests" --gtest_brief=1 --gtest_filter="$2-ALoop.StopsOnSignalsOnlyWhileItRuns"
}
