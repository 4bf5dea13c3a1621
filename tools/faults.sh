# shellcheck shell=bash
# ./dev faults: every call of an item's life fails in turn, with every error, every allocation too. Sourced by ./dev.

verb_faults() {
    [ $# -eq 0 ] || wrong "usage: ./dev faults"
    install_packages build test
    build_preset dev
    ACM_FAULTS_ALL=1 ACM_FAULTS_STEP=1 fixed_addresses "$ROOT/build/dev/bin/fault_tests" --gtest_brief=1
}
