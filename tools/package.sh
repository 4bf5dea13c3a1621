# shellcheck shell=bash
# ./dev package [test]: the Debian packages, and what is to be said of them. Sourced by ./dev.

verb_package() {
    [ $# -eq 0 ] || [ "$*" = test ] || wrong "usage: ./dev package [test]"
    install_packages build package sandbox
    make_packages "$ROOT/build/package"
    ls "$ROOT"/build/package/*.deb
    [ $# -eq 0 ] || check_packages "$ROOT/build/package"
}

# make_packages BUILD
make_packages() {
    build_preset package
    rm -f "$1"/*.deb
    (cd "$1" && cpack >cpack.log 2>&1) || {
        cat "$1/cpack.log" >&2
        fail "cpack failed"
    }
}

check_packages() {
    "$ROOT/tests/packages/package_test.sh" "$1"
    say "lintian"
    lintian --fail-on error "$1"/*.deb
    say "systemd-analyze"
    systemd-analyze security --offline=true "$ROOT/packaging/app-cfg-mgmt.service" | tail -n 1
}
