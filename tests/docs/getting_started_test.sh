#!/usr/bin/env bash
# getting_started_test.sh BUILD: every command of docs/getting-started.md, in order, prints what stands below it. What
# the page builds by ./dev is BUILD. 77: no sandbox.
set -euo pipefail
ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
BUILD=$1
# shellcheck source=tools/common.sh
. "$ROOT/tools/common.sh"
# shellcheck source=tools/sandbox.sh
. "$ROOT/tools/sandbox.sh"
if ! reason=$( (sandbox_check_here) 2>&1); then
    echo "$reason"
    exit 77
fi
HOME=$(mktemp -d)
export HOME PL_LOG_LEVEL=1
SERVERS=()
trap 'kill -TERM "${SERVERS[@]}" || true; wait "${SERVERS[@]}" || true; rm -rf "$HOME"' EXIT
cd "$ROOT"

# start COMMAND...: a server, in the background as soon as it says that it runs.
start() {
    local line log
    exec {log}< <(exec "$@" 2>&1)
    SERVERS+=($!)
    until [[ ${line-} == *"start running"* ]]; do read -r line <&"$log" || return 1; done
    cat <&"$log" >/dev/null &
}

start_appmgr() {
    KESTREL_ROOT=$1 start "$BUILD/bin/kestrel_host" "$BUILD/lib/libappmgr_service.so" CreateAppMgrService
}

# The commands up to the next output are one script; what they print and what the page says are two files.
awk -v to="$HOME" '
    /^```(sh|text)$/ { kind = $0 == "```text" ? "page" : "sh"; number += kind == "sh" && last != "sh"; last = kind; next }
    /^```/ { kind = "" }
    kind { print >(to "/" number "." kind) }
    END { print number >(to "/count") }' docs/getting-started.md
sed -i -e "s|^./dev serve --appmgr|start_appmgr|" -e "s|build/release|$BUILD|" \
    -e "s|^./dev serve|start $ROOT/tests/sandbox/day_test.sh serve $BUILD|" "$HOME"/*.sh
for ((number = 1; number <= $(<"$HOME/count"); number++)); do
    # shellcheck source=/dev/null
    . "$HOME/$number.sh" >"$HOME/seen" 2>&1 || { cat "$HOME/seen" && exit 1; }
    diff "$HOME/$number.page" "$HOME/seen"
done
