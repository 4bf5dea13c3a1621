#!/usr/bin/env bash
# day_test.sh BUILD: the service in its sandbox has its user and its capabilities, in all of its threads,
# a client's day goes as it should, and the service ends with status 0.
set -euo pipefail
ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=tools/common.sh
. "$ROOT/tools/common.sh"

if [ "$1" = serve ]; then
    # shellcheck source=tools/serve.sh
    . "$ROOT/tools/serve.sh"
    serve_built "$2" "$3"
fi

# shellcheck source=tools/run.sh
. "$ROOT/tools/run.sh"
# shellcheck source=tools/sandbox.sh
. "$ROOT/tools/sandbox.sh"
build=$1
if ! reason=$( (sandbox_check_here) 2>&1); then
    echo "$reason"
    exit 77
fi

threads() {
    find "/proc/$SERVICE_PID/task" -mindepth 1 -maxdepth 1 | wc -l
}

# expect_threads FIELD PATTERN: what that field of every thread's status ends with.
expect_threads() {
    local others
    others=$(grep -H "^$1:" "/proc/$SERVICE_PID"/task/*/status | grep -vE "$2\$" || true)
    [ -z "$others" ] || run_failed "$others"
}

run_day "$build" "${BASH_SOURCE[0]}" serve "$build"
# The items of the day may still be ending. This one has its threads when it is created.
coproc shell { exec appcfg shell "$ROOT/examples/tour/network.json"; }
read -rt 20 -u "${shell[0]}" _ || run_failed "no item was created"
[ "$(threads)" -gt 1 ] || run_failed "an item started no thread"
for field in CapInh CapPrm CapEff; do
    expect_threads "$field" 6762bc17
done
for field in Uid Gid; do
    number=$(run_inside "${field,,}_map" "$field")
    [ "$number" -ne 0 ] || run_failed "the service is root"
done
eval "exec ${shell[1]}>&-"
# The prompt, which a pipe does not get, takes UTF-8 in every locale.
printf 'set hostname=Küche\nget hostname\nquit\n' |
    LC_ALL=C script -qec "appcfg shell '$ROOT/examples/tour/network.json'" /dev/null | tr -d '\r' |
    grep -x Küche || run_failed "the prompt changed a value"
run_stop
