# shellcheck shell=bash
# ./dev arm [test [CTEST ARGUMENTS]]: the build for 32-bit ARM, against Debian's own packages of that machine. Sourced by ./dev.
#
# The packages are taken with a configuration and state of their own, so that this machine's package manager
# learns nothing of a second architecture, and are unpacked into a folder: the sysroot. It is kept outside of
# the checkout and made again when the list of packages changes.

SYSROOT_LIST=$ROOT/tools/packages/sysroot
SYSROOT_CACHE=${XDG_CACHE_HOME:-$HOME/.cache}/app-cfg-mgmt

verb_arm() {
    [ "${1-test}" = test ] || wrong "usage: ./dev arm [test [CTEST ARGUMENTS]]"
    install_packages build arm test
    make_sysroot
    build_preset arm
    file -b "$ROOT/build/arm/lib/libapp_cfg_mgmt_service.so" >&2 || true
    [ $# -eq 0 ] || test_arm "${@:2}"
}

# Sets ACM_SYSROOT, where cmake's preset looks for it.
make_sysroot() {
    local suite version
    read -r -a suite < <(main_suite) ||
        fail "where this machine gets its packages from is not known; let root run: apt-get update"
    version=$(sha256sum - "$SYSROOT_LIST" <<<"${suite[*]}" | sha256sum | cut -c1-16)
    export ACM_SYSROOT=$SYSROOT_CACHE/armhf-$version
    [ ! -d "$ACM_SYSROOT" ] || return 0
    say "making the sysroot $ACM_SYSROOT"
    local work
    mkdir -p "$SYSROOT_CACHE"
    work=$(mktemp -d "$SYSROOT_CACHE/making.XXXXXX")
    (
        trap 'rm -rf "$work"' EXIT
        download_sysroot "$work" "${suite[@]}"
        for package in "$work"/cache/archives/*.deb; do
            dpkg -x "$package" "$work/root"
        done
        # Absolute links mean the device's own root.
        find "$work/root" -type l -lname '/*' | while read -r link; do
            ln -sfnr "$work/root$(readlink "$link")" "$link"
        done
        mv "$work/root" "$ACM_SYSROOT"
    ) || fail "the sysroot could not be made"
}

# Where this machine gets the packages of its own main suite from: URI, suite, component.
main_suite() {
    # shellcheck disable=SC1091,SC2016 # the machine's own; apt's own placeholders
    (. /etc/os-release && apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(COMPONENT)' 'Created-By: Packages' |
        awk -v suite="$VERSION_CODENAME" '$2 == suite && $3 == "main" { print; exit }')
}

# download_sysroot WORK URI SUITE COMPONENT
download_sysroot() {
    local work=$1 packages
    shift
    mkdir -p "$work"/{state/lists/partial,cache/archives/partial,root}
    touch "$work/state/status"
    echo "deb $*" >"$work/sources.list"
    cat >"$work/apt.conf" <<END
APT::Architecture "armhf";
APT::Architectures { "armhf"; };
APT::Install-Recommends "false";
APT::Sandbox::User "";
Dir::Etc::SourceList "$work/sources.list";
Dir::Etc::SourceParts "/dev/null";
Dir::State "$work/state";
Dir::State::status "$work/state/status";
Dir::Cache "$work/cache";
END
    mapfile -t packages <"$SYSROOT_LIST"
    APT_CONFIG=$work/apt.conf apt-get update -qq
    APT_CONFIG=$work/apt.conf apt-get install -y -qq --download-only "${packages[@]}" >"$work/log" ||
        { cat "$work/log" >&2 && false; }
}

# What cannot be seen through the emulator, with the reason; and the tests that start programs by name, which need a
# kernel that hands ARM programs to the emulator.
ARM_LEFT_OUT=(
    "sandbox_day: looks at all threads of the service, and the emulator has one of its own"
    "soak_brief: watches the memory of the service, and the emulator keeps the code that it translated"
)
ARM_NEEDS_HANDLER='crash|AHost|EndToEnd|transport_fault'

test_arm() {
    export QEMU_LD_PREFIX=$ACM_SYSROOT
    cd "$ROOT" || exit
    local out
    out=$(printf '%s\n' "${ARM_LEFT_OUT[@]%%:*}" | paste -sd'|')
    printf '   left out: %s\n' "${ARM_LEFT_OUT[@]}" >&2
    if (with_arm_handler true) 2>/dev/null; then
        say "testing preset arm; the kernel hands ARM programs to qemu-arm"
        (with_arm_handler ctest --preset arm -E "$out" "$@")
    else
        say "testing preset arm; this kernel has no handler for ARM programs in a namespace (Linux 6.7), so these are left out:"
        ctest --preset arm -N -R "$ARM_NEEDS_HANDLER" | sed -n 's/^ *Test *#[0-9]*: /   /p' >&2
        ctest --preset arm -E "$out|$ARM_NEEDS_HANDLER" "$@"
    fi
}

# This process becomes a command in namespaces of its own, in which ARM programs run through the emulator.
with_arm_handler() {
    # shellcheck source=tools/sandbox.sh
    . "$ROOT/tools/sandbox.sh"
    sandbox_become "$ROOT/tools/with_arm_handler.sh" "$@"
}
