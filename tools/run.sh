# shellcheck shell=bash
# ./dev run: the service in a process of its own, and a client's day with it. Sourced by ./dev.

# The service that run_start started, and the directory that it lives in; run_end ends and removes them.
SERVICE_PID=
SERVICE_DIR=

verb_run() {
    [ $# -eq 0 ] || wrong "usage: ./dev run"
    install_packages build sandbox tour
    build_preset release
    run_day "$ROOT/build/release" "$ROOT/dev" serve
    if [ -t 0 ]; then
        say "your turn: 'help' lists the commands, ctrl-D ends"
        # The prompt takes ctrl-C for itself.
        trap : INT
        appcfg shell "$ROOT/examples/tour/network.json" || true
        trap 'exit 130' INT
    fi
    run_stop
}

# run_day BUILD COMMAND...: the walk, with the programs in BUILD; COMMAND with a directory behind it is the
# service. The service still runs at the end.
run_day() {
    trap run_end EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM HUP
    SERVICE_DIR=$(mktemp -d)
    export KESTREL_ROOT=$SERVICE_DIR PATH="$1/bin:$PATH"
    shift
    run_start "$@"
    "$ROOT/examples/tour.sh" before-restart
    say "the service ends and is started anew"
    run_stop
    run_start "$@"
    "$ROOT/examples/tour.sh" after-restart
}

# In a session of its own, so that ctrl-C at the prompt does not reach the service.
run_start() {
    setsid "$@" "$SERVICE_DIR" >>"$SERVICE_DIR/service.log" 2>&1 </dev/null &
    SERVICE_PID=$!
    local deadline=$((SECONDS + 60))
    until run_listens; do
        if [ ! -e "/proc/$SERVICE_PID" ] || [ $SECONDS -ge $deadline ]; then
            run_failed "the service did not start"
        fi
        sleep 0.05
    done
    run_show_process
}

# The socket gets its name last, when it listens.
run_listens() {
    [ -S "$SERVICE_DIR/storage.paas.orb" ]
}

run_show_process() {
    say "service: process $SERVICE_PID, framework root $SERVICE_DIR"
    awk -v uid="$(run_inside uid_map Uid)" -v gid="$(run_inside gid_map Gid)" '
        /^Cap(Inh|Prm|Eff):/ { caps = caps "  " $1 " " $2 }
        END { print "   user sshd (uid " uid ", gid " gid " in its namespace)" caps }
    ' "/proc/$SERVICE_PID/status" >&2
}

# run_inside MAP FIELD: the service's id of that kind, as its own namespace numbers it.
run_inside() {
    awk -v field="$2:" '
        FNR == NR { if ($1 == field) outside = $3; next }
        outside >= $2 && outside < $2 + $3 { printf "%.0f\n", $1 + outside - $2 }
    ' "/proc/$SERVICE_PID/status" "/proc/$SERVICE_PID/$1"
}

run_stop() {
    local status=0
    kill -TERM "$SERVICE_PID"
    wait "$SERVICE_PID" || status=$?
    SERVICE_PID=
    [ $status -eq 0 ] || run_failed "the service ended with status $status"
    say "the service ended with status 0"
}

run_failed() {
    say "$1; its log:"
    cat "$SERVICE_DIR/service.log" >&2
    exit 1
}

run_end() {
    if [ -n "$SERVICE_PID" ]; then
        kill -TERM "$SERVICE_PID" 2>/dev/null || true
        wait "$SERVICE_PID" 2>/dev/null || true
    fi
    [ -z "$SERVICE_DIR" ] || rm -rf "$SERVICE_DIR"
}
