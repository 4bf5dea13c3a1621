# shellcheck shell=bash
# ./dev serve: the service, or the application manager, in the foreground. Sourced by ./dev.

# This process becomes the server itself, so that its process id takes the signals and yields the status.
verb_serve() {
    local preset=release appmgr=no options=()
    while [ $# -gt 0 ]; do
        case "$1" in
        --appmgr) appmgr=yes ;;
        --preset | --socket-mode | --socket-group)
            [ $# -ge 2 ] || fail "$1 needs a value"
            if [ "$1" = --preset ]; then preset=$2; else options+=("$1" "$2"); fi
            shift
            ;;
        -*) fail "./dev serve: unknown option $1" ;;
        *) break ;;
        esac
        shift
    done
    [ $# -eq 1 ] || fail "usage: ./dev serve [--appmgr] [--preset NAME] [--socket-mode MODE] [--socket-group GROUP] DIR"
    mkdir -p "$1"
    local dir lib="$ROOT/build/$preset/lib"
    dir=$(cd "$1" && pwd -P)
    local host=("$ROOT/build/$preset/bin/kestrel_host" "${options[@]}")

    install_serve_packages "$preset"
    build_preset "$preset"
    export KESTREL_ROOT=$dir
    if [ "$appmgr" = yes ]; then
        # Not in the sandbox: a process there may not look up the root directories of those outside.
        exec "${host[@]}" "$lib/libappmgr_service.so" CreateAppMgrService
    fi
    mkdir -p "$dir/setting" "$dir/setting_bak"
    # shellcheck source=tools/sandbox.sh
    . "$ROOT/tools/sandbox.sh"
    sandbox_enter "$dir" "${host[@]}" "$lib/libapp_cfg_mgmt_service.so"
}

install_serve_packages() {
    if [ "$1" = release ]; then install_packages build sandbox; else install_packages build sandbox test; fi
}
