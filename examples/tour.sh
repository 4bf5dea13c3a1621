#!/usr/bin/env bash
# A client's day with the service, chapter by chapter: every step says what it does, shows the command and what
# it printed, and checks the result. Needs the running service's directory in KESTREL_ROOT, and `appcfg` and
# `openssl` on the PATH.
#   tour.sh                  the whole day
#   tour.sh before-restart   the first part; the service may be started anew between the two
#   tour.sh after-restart    the second part
set -euo pipefail

CHAPTERS=$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/tour

before_restart() {
    "$CHAPTERS/1_json.sh"
    "$CHAPTERS/2_xml.sh"
    "$CHAPTERS/3_ini.sh"
    "$CHAPTERS/4_burst.sh"
    "$CHAPTERS/5_secret.sh"
}

after_restart() {
    "$CHAPTERS/6_new_key.sh"
    printf '\nThat was a whole day, and each of its steps was checked.\n'
}

case "${1:-whole}" in
whole)
    before_restart
    after_restart
    ;;
before-restart) before_restart ;;
after-restart) after_restart ;;
*)
    echo "usage: tour.sh [before-restart | after-restart]" >&2
    exit 2
    ;;
esac
