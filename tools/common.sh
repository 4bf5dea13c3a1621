# shellcheck shell=bash
# What every verb of ./dev needs: messages, packages, builds. Sourced; ROOT is the checkout.

say() {
    printf '== %s\n' "$*" >&2
}

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

# Installs what the lists tools/packages/<name> hold and this machine lacks; asks the network for
# nothing when all of it is there.
install_packages() {
    command -v dpkg-query >/dev/null || return 0
    local wanted=() missing=() package
    mapfile -t wanted < <(cd "$ROOT/tools/packages" && sort -u "$@")
    for package in "${wanted[@]}"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | head -n 1)" = installed ] ||
            missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    say "installing ${missing[*]}"
    as_root apt-get update -qq
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        fail "missing packages and no sudo: let root run: apt-get install ${missing[*]-}"
    fi
}

# The thread sanitizer of this compiler cannot place its shadow where a kernel spreads addresses widely.
fixed_addresses() {
    if setarch "$(uname -m)" -R true 2>/dev/null; then
        setarch "$(uname -m)" -R "$@"
    else
        "$@"
    fi
}

# One build at a time: a service and an application manager may be started together.
build_preset() {
    local preset=$1 log="$ROOT/build/$1.configure.log"
    say "building preset $preset"
    mkdir -p "$ROOT/build"
    (
        cd "$ROOT" || exit
        exec 9>build/lock
        flock 9
        cmake --preset "$preset" >"$log" 2>&1 || {
            cat "$log"
            fail "cmake --preset $preset failed"
        }
        fixed_addresses cmake --build --preset "$preset"
    ) >&2
}
