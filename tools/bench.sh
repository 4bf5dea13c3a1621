# shellcheck shell=bash
# ./dev bench: how fast the service is beside what could be at best, as a report. Sourced by ./dev.

verb_bench() {
    [ $# -eq 0 ] || [ "$*" = quick ] || wrong "usage: ./dev bench [quick]"
    install_packages build sandbox bench
    build_preset bench
    local dir status=0
    dir=$(mktemp -d)
    mkdir -p "$ROOT/build/bench" "$dir/setting" "$dir/setting_bak"
    PYTHONPATH=$ROOT/client/python LD_LIBRARY_PATH=$ROOT/build/bench/lib python3 "$ROOT/bench/speed/bench.py" "$ROOT" "$dir" "$@" || status=$?
    rm -rf "$dir"
    return $status
}
