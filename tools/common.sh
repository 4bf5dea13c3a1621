# shellcheck shell=bash
# What every verb of ./dev needs: messages, packages, builds. Sourced; ROOT is the checkout.

say() {
    printf '== %s\n' "$*" >&2
}

fail() {
    printf '%s\n' "$*" >&2
    exit 1
}

# What the caller wrote is wrong.
wrong() {
    printf '%s\n' "$*" >&2
    exit 2
}

# Installs what the lists tools/packages/<name> hold and this machine lacks; asks the network for
# nothing when all of it is there.
install_packages() {
    local wanted=() missing=() package
    mapfile -t wanted < <(cd "$ROOT/tools/packages" && sort -u "$@")
    if ! command -v dpkg-query >/dev/null; then
        say "no dpkg here; needed is what Debian calls ${wanted[*]}"
        return
    fi
    for package in "${wanted[@]}"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | head -n 1)" = installed ] ||
            missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    say "installing ${missing[*]}"
    as_root apt-get update -qq || say "apt-get update failed; trying with the lists that are here"
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
# Where that may not be asked for, programs run as they are.
FIXED_ADDRESSES=(setarch "$(uname -m)" -R)
"${FIXED_ADDRESSES[@]}" true 2>/dev/null || FIXED_ADDRESSES=()

fixed_addresses() {
    "${FIXED_ADDRESSES[@]}" "$@"
}

check_preset() {
    grep -qF "{\"name\": \"$1\", \"configurePreset\"" "$ROOT/CMakePresets.json" ||
        wrong "no preset '$1'; CMakePresets.json lists them"
}

# Files of another user in it could be neither replaced nor, made by root, cleared away later.
make_build_directory() {
    mkdir -p "$ROOT/build"
    [ -O "$ROOT/build" ] || fail "$ROOT/build belongs to $(stat -c "%U (%u)" "$ROOT/build"): build as that user, or in a checkout of your own"
}

# One build at a time: a service and an application manager may be started together.
build_preset() {
    local preset=$1 log="$ROOT/build/$1.configure.log"
    say "building preset $preset"
    make_build_directory
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
