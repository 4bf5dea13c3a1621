# shellcheck shell=bash
# ./dev coverage: which branches of the service's own sources the tests take. Sourced by ./dev.

# Branches that only an exception takes out of a call are not counted: the compiler makes one for each call.
verb_coverage() {
    install_packages build test sandbox coverage
    cd "$ROOT" || exit
    build_preset coverage
    find build/coverage -name '*.gcda' -delete
    # Programs outside of the build cannot link what counts.
    ctest --preset coverage -E getting_started "$@"
    gcovr --root . --filter system_server/ --branches --exclude-throw-branches --exclude-unreachable-branches \
        --html-details build/coverage/report.html --txt - build/coverage
    say "coverage: line by line in build/coverage/report.html"
}
