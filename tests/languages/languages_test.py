"""languages_test.py PROGRAM SERVICE...: the C interface by PROGRAM, and Python's by itself, with the service that the
command starts in the framework root of KESTREL_ROOT."""

import os
import pathlib
import subprocess
import sys
import time

import appcfg

ROOT = pathlib.Path(os.environ["KESTREL_ROOT"])
FILE = ROOT / "settings.json"


def start() -> "subprocess.Popen[bytes]":
    service = subprocess.Popen(sys.argv[2:])
    while True:
        try:
            appcfg.Connection().close()
            return service
        except appcfg.NoConnection:
            assert service.poll() is None
            time.sleep(0.01)


def raises(kind: type, call) -> Exception:
    try:
        call()
    except kind as fault:
        return fault
    raise AssertionError(f"no {kind.__name__}")


service = start()
FILE.write_text('{"text": "", "number": 0}')
shown = subprocess.run([sys.argv[1], str(FILE)], stdout=subprocess.PIPE, text=True, check=True).stdout
assert shown.splitlines() == [
    "set 0", "get 0 a b 7", "int 7 -1", "bool 1 double 7", "none 1 1 2 400", "null 2", "raw 0 new", "delete 0 1",
    "told 0"], shown

FILE.write_text('{"name": "attic", "on": "no", "mtu": 1500, "wifi": {"ssid": "x"}}')
heard: "list[str]" = []
with appcfg.Connection(5) as connection:
    connection.keep_items(heard.append)
    with connection.create("lang", "python", path=str(FILE)) as item:
        item["wifi.ssid"] = "Küche"
        item.set_many({"mtu": 9000, "on": True})
        assert item.get_many(["wifi.ssid", "on"]) == ["Küche", "true"]
        assert (item.get("mtu", 0), item.get("on", False), item.get("none", 2.5)) == (9000, True, 2.5)
        raises(appcfg.NoSuchValue, lambda: item.get("name", 1))
        raises(KeyError, lambda: item["none"])
        raises(appcfg.Invalid, lambda: item.set_many({"name": "a,b"}))
        assert item.raw_get("wifi.ssid") == "Küche"
        service.terminate()
        assert service.wait() == 0
        service = start()
        assert item["wifi.ssid"] == "Küche" and len(heard) == 1, heard
        item.change_key(bytes(range(32)), bytes(16))
        assert b"Python" not in FILE.read_bytes()
        item.change_key(None)
    fault = raises(appcfg.Refused, lambda: connection.open("lang", "python").raw_get())
    assert isinstance(fault, appcfg.Refused) and (fault.request, fault.status) == (appcfg.Request.RAW_GET, 404)
service.terminate()
assert service.wait() == 0
