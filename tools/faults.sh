# shellcheck shell=bash
# ./dev faults: every call of an item's life fails in turn, with every error, every allocation too. Sourced by ./dev.

verb_faults() {
    [ $# -eq 0 ] || wrong "usage: ./dev faults"
    install_packages build test
    build_preset dev
    "$ROOT/build/dev/bin/fault_sweep"
}
