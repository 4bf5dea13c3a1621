# shellcheck shell=bash
# ./dev serve: the service, or the application manager, in the foreground. Sourced by ./dev.

# This process becomes the server itself, so that its process id takes the signals and yields the status.
verb_serve() {
    local preset=release appmgr=no options=()
    while [ $# -gt 0 ]; do
        case "$1" in
        --appmgr) appmgr=yes ;;
        --preset | --socket-mode | --socket-group)
            [ $# -ge 2 ] || wrong "$1 needs a value"
            if [ "$1" = --preset ]; then preset=$2; else options+=("$1" "$2"); fi
            shift
            ;;
        -*) wrong "./dev serve: unknown option $1" ;;
        *) break ;;
        esac
        shift
    done
    [ $# -eq 1 ] || wrong "usage: ./dev serve [--appmgr] [--preset NAME] [--socket-mode MODE] [--socket-group GROUP] DIR"
    check_preset "$preset"
    mkdir -p -- "$1"
    local dir build="$ROOT/build/$preset"
    dir=$(cd -- "$1" && pwd -P)
    # Its owner could put other directories in the place of those that the service writes to.
    [ -O "$dir" ] || fail "./dev serve: $dir belongs to $(stat -c "%U (%u)" "$dir"); use a directory of your own"

    install_serve_packages "$preset"
    build_preset "$preset"
    if [ "$appmgr" = yes ]; then
        export KESTREL_ROOT=$dir
        # Not in the sandbox: a process there may not look up the root directories of those outside.
        exec "$build/bin/kestrel_host" "${options[@]}" "$build/lib/libappmgr_service.so" CreateAppMgrService
    fi
    serve_built "$build" "$dir" "${options[@]}"
}

# serve_built BUILD DIR [OPTION...]: this process becomes the service that stands in BUILD.
serve_built() {
    local build=$1 dir=$2
    shift 2
    mkdir -p "$dir/setting" "$dir/setting_bak"
    # shellcheck source=tools/sandbox.sh
    . "$ROOT/tools/sandbox.sh"
    export KESTREL_ROOT=$dir
    sandbox_enter "$dir" "$build/bin/kestrel_host" "$@" "$build/lib/libapp_cfg_mgmt_service.so"
}

install_serve_packages() {
    if [ "$1" = release ]; then install_packages build sandbox; else install_packages build sandbox test; fi
}
