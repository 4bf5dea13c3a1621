#!/usr/bin/env bash
# What package_test.sh does in its root, where the packages stand in /packages.
set -euo pipefail
cd /root
UNIT=/usr/lib/systemd/system/app-cfg-mgmt.service

step() {
    printf -- '-- %s\n' "$*"
}

# As the unit does: its command, and no capability beyond those that it names.
serve() {
    local command capabilities
    read -r -a command < <(sed -n 's/^ExecStart=//p' $UNIT)
    capabilities=$(sed -n 's/^CapabilityBoundingSet=//p' $UNIT | tr ' ' '\n' | sed 's/^CAP_/+/' | tr '[:upper:]' '[:lower:]' | paste -sd,)
    setpriv --no-new-privs "--bounding-set=-all,$capabilities" "${command[@]}" 2>>service.log &
    SERVICE=$!
    for ((tries = 200; tries > 0; tries--)); do
        appcfg get no/item key >/dev/null 2>&1 || [ $? -ne 1 ] || return 0
        kill -0 $SERVICE || break
        sleep 0.05
    done
    cat service.log
    exit 1
}

step "installing"
dpkg -i /packages/*.deb 2>&1 | grep -E '^(Setting|Unpacking)'
! command -v systemd-analyze >/dev/null || systemd-analyze verify --man=no $UNIT
cat >/usr/setting/program.default.json <<<'{"network": {"name": "kitchen"}}'
serve
step "the service's capabilities: $(grep CapEff /proc/$SERVICE/status | cut -f2), user $(stat -c %u /proc/$SERVICE)"

step "a program by pkg-config"
# shellcheck disable=SC2046 # words
g++ -std=c++17 client.cpp -o by-pkg-config $(pkg-config --cflags --libs appcfg)
./by-pkg-config
step "the same by CMake"
cmake -S . -B build -G Ninja >/dev/null
cmake --build build >/dev/null
build/client

step "and from Python"
python3 -c 'import appcfg
with appcfg.Connection() as c, c.create("package", "test", path="/usr/setting/program.json") as item:
    print(item["network.name"])'

step "an upgrade over itself, while an item is held"
exec {shell}> >(exec appcfg shell item.json)
until appcfg get package/test network.name >/dev/null 2>&1; do sleep 0.05; done
appcfg watch package/test network.name --interval 0.05 --changes 1 >watched &
watch=$!
until [ -s watched ]; do sleep 0.05; done
appcfg set package/test network.name=cellar
wait $watch
grep -x cellar watched
dpkg -i /packages/app-cfg-mgmt-service_*.deb 2>&1 | grep -E '^(Setting|Unpacking)'
appcfg get package/test network.name | grep -x cellar
kill $SERVICE
wait $SERVICE
exec {shell}>&-
grep cellar /usr/setting/program.json /usr/setting_bak/program.json
[ ! -s service.log ] || cat service.log

step "removal, then purge"
dpkg -r app-cfg-mgmt-service 2>&1 | grep -v Reading
dpkg -P app-cfg-mgmt-service 2>&1 | grep -v Reading
dpkg -P appcfg libappcfg >/dev/null 2>&1
[ ! -e /usr/bin/kestrel_host ] && [ ! -e /usr/include/appcfg ] && [ ! -e /usr/bin/appcfg ]
ls /usr/setting /usr/setting_bak
