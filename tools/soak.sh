# shellcheck shell=bash
# ./dev soak [SECONDS] [PRESET]: many clients against one service, watched for what grows. Sourced by ./dev.

verb_soak() {
    local seconds=${1:-60} preset=${2:-dev}
    if [[ ! $seconds =~ ^[1-9][0-9]*$ ]] || [ $# -gt 2 ]; then
        wrong "usage: ./dev soak [SECONDS] [PRESET]"
    fi
    check_preset "$preset"
    install_packages build test sandbox
    build_preset "$preset"
    [ -x "$ROOT/build/$preset/bin/soak" ] || wrong "preset $preset is one without tests: dev, asan or tsan"
    soak_built "$ROOT/build/$preset" "$seconds" || fail "soak: failed"
    say "soak: passed; what it held is in build/$preset, soak.svg or soak.table"
}

# soak_built BUILD SECONDS [SEED]: the run, with the programs in BUILD.
soak_built() {
    local build=$1 dir status=0
    dir=$(mktemp -d)
    soak_in_sandbox "$build" "$dir" "$2" "$dir/soak.table" "${@:3}" || status=$?
    [ ! -s "$dir/soak.table" ] || soak_picture "$dir/soak.table" "$build/soak.svg"
    if [ $status -ne 0 ]; then
        cp "$dir/service.log" "$build/soak.log"
        grep -aE -A 30 'runtime error|(ERROR|WARNING): [A-Z][A-Za-z]+Sanitizer|terminate called' \
            "$build/soak.log" | head -n 100 || true
        say "the service's log is $build/soak.log"
    fi
    rm -rf "$dir"
    return $status
}

# soak_picture TABLE PICTURE
soak_picture() {
    if command -v gnuplot >/dev/null; then
        gnuplot -e "table='$1'; picture='$2'" "$ROOT/endurance/soak/soak.gp"
    else
        cp "$1" "${2%.svg}.table"
        say "no gnuplot, no picture; the table is ${2%.svg}.table"
    fi
}

# Lines of level 3 alone: those below would be gigabytes. The address sanitizer keeps little of what was
# freed, so that memory is level early; the thread sanitizer needs fixed addresses.
soak_in_sandbox() (
    # shellcheck source=tools/sandbox.sh
    . "$ROOT/tools/sandbox.sh"
    mkdir "$2/setting" "$2/setting_bak"
    export PL_LOG_LEVEL=3 ASAN_OPTIONS="quarantine_size_mb=16:${ASAN_OPTIONS-}"
    export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:${TSAN_OPTIONS-}"
    sandbox_enter "$2" "${FIXED_ADDRESSES[@]}" "$1/bin/soak" "$@"
)
