#!/usr/bin/env bash
# device_build_test.sh BUILD: the service alone, built against headers that are laid out as a device's SDK lays them
# out, needs nothing but the framework's functions, and serves in a host that has these. 77: no sandbox.
set -euo pipefail
ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
# shellcheck source=tools/common.sh
. "$ROOT/tools/common.sh"
# shellcheck source=tools/serve.sh
. "$ROOT/tools/serve.sh"
# shellcheck source=tools/sandbox.sh
. "$ROOT/tools/sandbox.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mkdir -p "$work"/sdk/include/{kestrel,tern,pl,securec} "$work/build"/{bin,lib}
cp "$ROOT/platform/include/tern/tern.h" "$work/sdk/include/tern"
cp "$ROOT/platform/include/pl/pl_log.h" "$work/sdk/include/pl"
cp "$ROOT/platform/include/securec/securec.h" "$work/sdk/include/securec"
grep -vE '^int kestrel_(open|ioctl)\(' "$ROOT/platform/include/kestrel/kestrel.h" >"$work/sdk/include/kestrel/kestrel.h"
cmake -S "$ROOT" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DACM_PLATFORM=device \
    -DACM_PLATFORM_ROOT="$work/sdk" >"$work/log"
cmake --build "$work/build" >>"$work/log" || fail "$(tail -n 40 "$work/log")"

# Left open are versioned names of libraries, C++ names, and these.
left=$(nm -D --undefined-only "$work/build/lib/libapp_cfg_mgmt_service.so" | awk '{ print $NF }' |
    grep -vE '@|^_ZN?|^_ITM_|^__gmon_start__$' | grep -vE '^(PL_WriteLog|memcpy_s|pcalloc|tern_[a-z_]+|kestrel_(event_mgr_new|event_mgr_run|server_register))$' || true)
[ -z "$left" ] || fail "names that no device has: $left"

if ! reason=$( (sandbox_check_here) 2>&1); then
    echo "$reason"
    exit 77
fi
ln -s "$1/bin/kestrel_host" "$work/build/bin"
echo '{"a": "served"}' >"$work/settings.json"
echo '{"handle": "device/test", "storage": "json", "path": "'"$work/settings.json"'"}' >"$work/item.json"
export KESTREL_ROOT=$work PL_LOG_LEVEL=3
(serve_built "$work/build" "$work") &
service=$!
for ((tries = 400; tries > 0; tries--)); do
    [ ! -S "$work/storage.paas.orb" ] || break
    kill -0 $service
    sleep 0.05
done
[ "$(echo 'get a' | "$1/bin/appcfg" shell "$work/item.json" | tail -n 1)" = served ] || fail "not served"
kill $service
wait $service
