# shellcheck shell=bash
# ./dev powercut: cuts the power after each file call of items' lives, in every way. Sourced by ./dev.

verb_powercut() {
    [ $# -eq 0 ] || wrong "usage: ./dev powercut"
    install_packages build test
    build_preset dev
    "$ROOT/build/dev/bin/power_cut"
}
