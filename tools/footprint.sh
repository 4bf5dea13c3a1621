# shellcheck shell=bash
# ./dev footprint [arm]: what the service costs a device, as tables. Sourced by ./dev.

verb_footprint() {
    [ $# -eq 0 ] || [ "$*" = arm ] || wrong "usage: ./dev footprint [arm]"
    local preset=${1:-dev} build prefix=
    build=$ROOT/build/$preset
    if [ "$preset" = arm ]; then
        # shellcheck source=tools/arm.sh
        . "$ROOT/tools/arm.sh"
        install_packages build test arm
        make_sysroot
        prefix=arm-linux-gnueabihf-
    else
        install_packages build test sandbox
    fi
    build_preset "$preset"
    print_library_sizes "$build" "$prefix"
    printf '\n'
    run_footprint "$build" stack
    run_footprint "$build" many 1000 8192 || say "1,000 items do not fit with stacks of 8 MiB"
    run_footprint "$build" many 1000 256
    run_footprint "$build" start "$build"
    printf '\n'
    run_footprint "$build" items
}

# run_footprint BUILD ARGUMENT...: in a sandbox, since the service needs its user and capabilities to start.
run_footprint() (
    export PL_LOG_LEVEL=9
    dir=$(mktemp -d)
    trap 'rm -rf "$dir"' EXIT
    mkdir "$dir/setting" "$dir/setting_bak"
    # shellcheck source=tools/sandbox.sh
    . "$ROOT/tools/sandbox.sh"
    if [ "$1" = "$ROOT/build/arm" ]; then
        export QEMU_LD_PREFIX=$ACM_SYSROOT
        # shellcheck disable=SC2016 # expanded inside
        (with_arm_handler bash -c 'ROOT=$0; . "$ROOT/tools/common.sh"; . "$ROOT/tools/sandbox.sh"; sandbox_enter "$@"' \
            "$ROOT" "$dir" "$1/bin/footprint" "${@:2}")
    else
        (sandbox_enter "$dir" "${FIXED_ADDRESSES[@]}" "$1/bin/footprint" "${@:2}")
    fi
)

print_library_sizes() {
    local library work
    work=$(mktemp -d)
    printf '| %s | stripped (bytes) | text | data | bss | relocations | needed, with the names used of each |\n|---|---|---|---|---|---|---|\n' "$(uname -m)${2:+, for ${2%-}}"
    for library in libapp_cfg_mgmt_service libkestrel_platform; do
        "${2}strip" -o "$work/stripped" "$1/lib/$library.so"
        printf '| %s | %s | %s | %s | %s |\n' "$library" "$(stat -c %s "$work/stripped")" \
            "$("${2}size" "$work/stripped" | awk 'NR == 2 { print $1 " | " $2 " | " $3 }')" \
            "$("${2}readelf" -rW "$work/stripped" | grep -c ' R_')" "$(used_libraries "$work/stripped" "$2" "$1")"
    done
    rm -rf "$work"
}

# Each library that is needed, with how many names are used of it: none would be one too many.
used_libraries() {
    local needed path
    "${2}nm" -D --undefined-only "$1" | awk '{ sub(/@.*/, "", $NF); print $NF }' | sort -u >"$1.names"
    for needed in $("${2}readelf" -dW "$1" | sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p'); do
        path=$(find -L "$3/lib" "${ACM_SYSROOT-}/lib" "${ACM_SYSROOT-}/usr/lib" -name "$needed" -print -quit 2>/dev/null)
        "${2}nm" -D --defined-only "$path" | awk '{ sub(/@.*/, "", $NF); print $NF }' | sort -u |
            comm -12 - "$1.names" | wc -l | sed "s/^/$needed /"
    done | paste -sd, | sed 's/,/, /g'
}
