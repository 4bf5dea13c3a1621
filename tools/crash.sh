# shellcheck shell=bash
# ./dev crash [ROUNDS] [--twice] [--seed N]: kills the service at random moments. Sourced by ./dev.

verb_crash() {
    install_packages build sandbox test
    build_preset dev
    say "crashing: 2,000 rounds, unless told otherwise, take about 5 minutes"
    trap : INT # the harness then ends its rounds and tells what it saw
    crash_built "$ROOT/build/dev" "$@"
}

# crash_built BUILD [ARGUMENT...]: the harness that stands in BUILD, in the service's sandbox.
crash_built() {
    local build=$1 dir status=0
    shift
    # shellcheck source=tools/sandbox.sh
    . "$ROOT/tools/sandbox.sh"
    dir=$(mktemp -d)
    mkdir "$dir/setting" "$dir/setting_bak"
    (sandbox_enter "$dir" "$build/bin/crash_harness" "$build" "$dir" "$@") || status=$?
    # Other statuses: told nonsense, or interrupted.
    [ $status -ne 1 ] || fail "crash: failed; logs and files are in $dir"
    rm -rf "$dir"
    return $status
}
