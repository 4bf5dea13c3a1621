"""bench.py ROOT DIR [quick]: times the service beside what a request could cost at best, in turn, in one run.

Each figure is the median of rounds in which the limit and the service are measured one after the other, so that what
else the machine does hits both. One client shares the server's processor; fifty are driven by one thread on another."""

import contextlib
import ctypes
import json
import os
import pathlib
import signal
import socket as sockets
import statistics
import struct
import subprocess
import sys
import time
from typing import Callable, Iterator, NamedTuple, Optional

from report import Report

ROOT, DIR = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
QUICK = len(sys.argv) > 3
BUILD = ROOT / "build/bench"
SERVICE = DIR / "storage.paas.orb"
ROUNDS, SECONDS = (3, 0.55) if QUICK else (5, 1.0)
FORMATS = {"json": 3, "xml": 1, "ini": 0}
INSTANT, DELAYED, TIMED, NEVER = 1, 2, 3, 0


class Load(NamedTuple):
    rate: float  # requests a second
    p50: float  # us, as the others
    p90: float
    p99: float
    p999: float


def frame(method: int, uri: int, record: bytes) -> bytes:
    return struct.pack("<HBBHHIIII", 0x4E54, 0, method, uri, 0, 1, len(record) + 8, 1, len(record)) + record


def handle(name: str) -> bytes:
    return struct.pack("<32s32sII", b"bench", name.encode(), 0, 0)


def data(method: int, name: str, query: str) -> bytes:
    return frame(method, 1, handle(name) + query.encode().ljust(12288, b"\0"))


def get(name: str, *keys: str) -> bytes:
    return data(2, name, ",".join(keys))


def set_to(name: str, *keys: str) -> bytes:
    return data(3, name, ",".join(key + "|w" for key in keys))


def raw_get(name: str, key: str) -> bytes:
    return frame(2, 2, handle(name) + struct.pack("<128sI", key.encode(), 0))


def raw_set(name: str, key: str, text: str) -> bytes:
    content = text.encode() + b"\0"
    return frame(3, 2, handle(name) + struct.pack("<128sI", key.encode(), len(content)) + content)


def change_one(kind: str, name: str) -> bytes:
    return raw_set(name, "k5", "w") if kind == "json" else raw_set(name, "g0.h0", "<k5>w</k5>")


def pinned(cpu: int, *command: object) -> "list[str]":
    return ["taskset", "-c", str(cpu), *map(str, command)]


@contextlib.contextmanager
def running(command: "list[str]", socket: pathlib.Path, **more: object) -> Iterator[subprocess.Popen]:
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, **more)
    while True:
        with contextlib.suppress(OSError), sockets.socket(sockets.AF_UNIX) as probe:
            probe.connect(str(socket))
            break
        assert process.poll() is None, command
        time.sleep(0.01)
    try:
        yield process
    finally:
        process.send_signal(signal.SIGTERM)
        process.wait()
        socket.unlink(missing_ok=True)


def service(**environment: str) -> "contextlib.AbstractContextManager[subprocess.Popen]":
    script = f'ROOT={ROOT}; . "$ROOT/tools/common.sh"; . "$ROOT/tools/serve.sh"; serve_built {BUILD} {DIR}'
    return running(pinned(0, "bash", "-c", script), SERVICE, env={**os.environ, "PL_LOG_LEVEL": "3", **environment})


def load_command(socket: pathlib.Path, request: bytes, clients: int = 1, reply: int = 0, seconds: float = SECONDS) -> "list[str]":
    file = DIR / f"request-{hash(request)}"
    file.write_bytes(request)
    return pinned(0 if clients == 1 else 1, BUILD / "bin/speed_load", socket, file, clients, seconds, *([reply] if reply else []))


def load_of(command: "list[str]") -> Load:
    return Load(*map(float, subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout.split()))


def load(*what: object, **how: object) -> Load:
    return load_of(load_command(*what, **how))


def in_turn(*calls: Callable[[], Load]) -> "list[Load]":
    """The median of each figure of each call."""
    rounds = [[call() for call in calls] for _ in range(ROUNDS)]
    return [Load(*map(statistics.median, zip(*each))) for each in zip(*rounds)]


def bare(kind: str, file: pathlib.Path, key: str) -> "dict[str, float]":
    command = pinned(0, BUILD / "bin/speed_bare", kind, file, key, DIR / "setting/bare")
    out = subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout.split()
    return dict(zip(("lookup", "set", "fragment", "save", "disk", "wake"), map(float, out)))


def document(kind: str, keys: int) -> str:
    names = [f"k{number}" for number in range(keys)]
    if kind == "json":
        return "{" + ",".join(f'"{name}":"v"' for name in names) + "}"
    if kind == "xml":  # a hundred to a parent, since siblings are walked, and few names, since the library's pool is small
        text, halls = "<r>", range(0, keys, 100)
        for hall in halls:
            text += f"<g{hall // 10000}>" * (hall % 10000 == 0) + f"<h{hall // 100 % 100}>"
            text += "".join(f"<k{at}>v</k{at}>" for at in range(min(100, keys - hall))) + f"</h{hall // 100 % 100}>"
            text += f"</g{hall // 10000}>" * (hall % 10000 == 9900 or hall + 100 >= keys)
        return text + "</r>"
    return "".join(f"{name}=v\n" for name in names)


def key_of(kind: str, number: int) -> str:
    return f"g{number // 10000}.h{number // 100 % 100}.k{number % 100}" if kind == "xml" else f"k{number}"


class Items:
    """Items by the Python interface, which live as long as this object."""

    def __init__(self) -> None:
        ctypes.CDLL(str(BUILD / "lib/libkestrel_platform.so.1"), mode=ctypes.RTLD_GLOBAL)
        import appcfg  # finds its library by LD_LIBRARY_PATH
        self._appcfg = appcfg
        self._connections: "list[appcfg.Connection]" = []
        self._items: "list[appcfg.Item]" = []

    def make(self, name: str, kind: str, text: str, save: int = NEVER, key: bool = False) -> pathlib.Path:
        file = DIR / "setting" / f"{name}.{kind}"
        file.write_text(text)
        file.chmod(0o666)
        if len(self._items) % 250 == 0 and len(self._connections) <= len(self._items) // 250:
            self._connections.append(self._appcfg.Connection())
        secret = {"key": bytes(range(32)), "iv": bytes(16)} if key else {}
        self._items.append(self._connections[-1].create(
            "bench", name, path=f"/usr/setting/{file.name}", backup=f"/usr/setting_bak/{file.name}",
            storage=self._appcfg.Storage(FORMATS[kind]), save=self._appcfg.Strategy(save),
            backup_strategy=self._appcfg.Strategy(save), **secret))
        return file

    def one_more(self) -> float:
        """Makes and deletes one; the time in us."""
        start = time.perf_counter()
        self.make("one-more", "json", "{}")
        self._items.pop().delete()
        return (time.perf_counter() - start) * 1e6

    def end(self) -> None:
        for item in self._items:
            item.release()
        for connection in self._connections:
            connection.close()
        self._connections, self._items = [], []


def system_calls(process: subprocess.Popen, request: bytes, clients: int) -> Optional[float]:
    """Of the server, for each request; counted by the kernel, since a tracer that stops it would change what it does."""
    counts = DIR / "counts"
    counter = ["perf", "stat", "-x,", "-o", str(counts), "-e", "raw_syscalls:sys_enter", "-p", str(process.pid), "--"]
    with contextlib.suppress(OSError, ValueError, subprocess.CalledProcessError):
        done = load_of(counter + load_command(SERVICE, request, clients))
        return round(int(counts.read_text().split("\n")[-2].split(",")[0]) / (done.rate * SECONDS), 2)
    return None


class Bench:
    def __init__(self, report: Report) -> None:
        self.report = report
        self.items = Items()

    def echo(self, kind: str, reply: int, busy: float = 0) -> "contextlib.AbstractContextManager[subprocess.Popen]":
        socket = DIR / (f"echo.{kind}.busy" if busy else f"echo.{kind}")
        return running(pinned(0, BUILD / "bin/speed_echo", kind, socket, reply, busy), socket)

    def requests(self) -> None:
        """One request of a kind, beside the echo of the same frames."""
        goals = {("json", "get"): (0.82, 0.9), ("xml", "get"): (0.85, 0.9), ("ini", "get"): (0.92, 0.9),
                 ("json", "set"): (0.7, 0.65), ("xml", "set"): (0.7, 0.65), ("json", "raw get"): (0.75, 0.7),
                 ("xml", "raw get"): (0.75, 0.7)}
        for kind in FORMATS:
            file = self.items.make(f"one-{kind}", kind, document(kind, 1000), DELAYED)
            key = key_of(kind, 500)
            cost = bare(kind, file, key)
            each = {"get": (get(f"one-{kind}", key), 33, cost["lookup"]),
                    "set": (set_to(f"one-{kind}", key), 24, cost["lookup"] + cost["set"] + cost["wake"]),
                    "raw get": (raw_get(f"one-{kind}", key), 230, cost["fragment"])}
            for name, (request, reply, library) in each.items():
                if (kind, name) in goals:
                    self.beside_echo(kind, name, request, reply, library, goals[(kind, name)])

    def beside_echo(self, kind: str, name: str, request: bytes, reply: int, library: float,
                    goals: "tuple[float, float]") -> None:
        with self.echo("raw", reply), self.echo("raw", reply, library), self.echo("libevent", reply):
            for clients, goal in zip((1, 50), goals):
                limit, floor, buffered, done = in_turn(*[
                    lambda socket=socket: load(socket, request, clients)
                    for socket in (DIR / "echo.raw", DIR / "echo.raw.busy", DIR / "echo.libevent", SERVICE)])
                figure = f"{kind}: {name} of 1 key of 1,000, {clients} client{'s' * (clients > 1)}"
                self.report.rate(figure, done, limit, goal, floor)
                self.report.note(f"{figure}: libevent's buffered layer {buffered.rate:,.0f}/s")
                self.report.latencies(figure, [("the echo", limit), ("the service", done)])
                if clients == 50 and name == "get":
                    self.report.at_most(f"{figure}: p99, of the echo's", done.p99 / limit.p99, 1.5)

    def many_keys(self) -> None:
        file = DIR / "setting/one-json.json"
        lookups = 100 * bare("json", file, "k50")["lookup"]
        one, hundred = in_turn(lambda: load(SERVICE, get("one-json", "k500")),
                               lambda: load(SERVICE, get("one-json", *[f"k{n}" for n in range(100)])))
        self.report.at_most("json: get of 100 keys, of the library's 100 lookups and one request", hundred.p50
                            / (lookups + one.p50), 1.15)
        twenty = load(SERVICE, set_to("one-json", *[f"k{n}" for n in range(20)]))
        self.report.note(f"json: set of 20 keys {twenty.p50:.1f} us, get of 100 keys {hundred.p50:.1f} us")

    def calls(self, process: subprocess.Popen) -> None:
        request, change = get("one-json", "k500"), set_to("one-json", "k500")
        alone = system_calls(process, request, 1)
        if alone is None:
            self.report.note("no perf, or not allowed to: system calls are not counted")
            return
        waiting, burst = system_calls(process, request, 50), system_calls(process, change, 50)
        self.report.at_most("system calls of a get, one client", alone, 3)
        self.report.at_most("system calls of a get, 50 clients", waiting or 0, 3)
        self.report.at_most("system calls of a set, 50 clients, of a get's", round((burst or 0) / (waiting or 1), 2), 1)

    def durable(self) -> None:
        """Answered when file and backup are on the disk, beside one save by the library and two bare writes."""
        for keys in (10, 1000, 10000):
            for kind, key in (("json", False), ("json", True), ("xml", False)):
                name = f"durable-{kind}-{keys}{'-encrypted' * key}"
                file = self.items.make(name, kind, document(kind, keys), INSTANT, key)
                plain = DIR / "setting/bare-input"
                plain.write_text(document(kind, keys))
                at = key_of(kind, 5)
                ratios = []
                for _ in range(ROUNDS):
                    cost = bare(kind, plain, at)
                    ratios.append(load(SERVICE, change_one(kind, name)).p50 / (cost["save"] + 2 * cost["disk"]))
                goal = 1.25 if keys >= 1000 and kind == "json" and not key else None
                self.report.at_most(f"{kind}: durable raw set, {keys:,} keys{', encrypted' * key}, of save and two writes",
                                    statistics.median(ratios), goal)
                file.unlink()

    def each_case(self) -> None:
        """What each request costs, for each format and size; JSON's figures are held to how they may grow."""
        sizes = (10, 1000, 100000)
        for kind in FORMATS:
            times: "dict[str, list[float]]" = {}
            for keys in sizes:
                for case, cost in self.cases(kind, keys):
                    times.setdefault(case, []).append(cost)
            self.report.growth(kind, sizes, times)

    def cases(self, kind: str, keys: int) -> "Iterator[tuple[str, float]]":
        name = f"case-{kind}-{keys}"
        start = time.perf_counter()
        self.items.make(name, kind, document(kind, keys), DELAYED)
        yield "load", (time.perf_counter() - start) * 1e6

        def some(count: int) -> "list[str]":
            return [key_of(kind, number % keys) for number in range(keys // 2, keys // 2 + count)]

        requests = {"get": get(name, *some(1)), "get of 100": get(name, *some(100)), "set": set_to(name, *some(1)),
                    "set of 20": set_to(name, *some(20))}
        if kind != "ini":
            requests["raw get"] = raw_get(name, *some(1))
            requests["raw set"] = change_one(kind, name)
        if kind != "ini" and keys == 1000:
            self.hundred_kilobytes(kind)
        for case, request in requests.items():
            yield case, load(SERVICE, request).p50
        if kind != "ini":
            self.items.make(f"{name}-instant", kind, document(kind, keys), INSTANT)
            yield "save", load(SERVICE, change_one(kind, f"{name}-instant")).p50

    def hundred_kilobytes(self, kind: str) -> None:
        text = document(kind, 100).replace("v", "v" * 1000)
        self.items.make(f"long-{kind}", kind, text, DELAYED)
        request = raw_get(f"long-{kind}", "")
        limit, done = 0.0, load(SERVICE, request)
        with self.echo("raw", len(text)):
            limit = load(DIR / "echo.raw", request).p50
        self.report.note(f"{kind}: raw get of a document of 100 KB {done.p50:.1f} us, of which an echo takes {limit:.1f} us")

    def live_items(self) -> None:
        """A get, and a creation with its deletion, beside so many other items."""
        counts = (1, 10, 100, 1000)
        rates, costs = [], []
        for made, count in zip((0, *counts), counts):
            for number in range(made, count):
                self.items.make(f"live-{number}", "json", document("json", 100))
            costs.append(statistics.median(self.items.one_more() for _ in range(50)))
            rates.append(statistics.median(load(SERVICE, get("live-0", "k50")).rate for _ in range(ROUNDS)))
        self.report.items(counts, rates, costs)

    def slow_disk(self, name: str, strategy: int, goals: "tuple[Optional[float], Optional[float]]" = (None, None)) -> None:
        """Fifty items are saved to a disk of 20 ms while others read."""
        for number in range(50):
            self.items.make(f"slow-{number}", "json", document("json", 100), strategy)
        made = time.monotonic()
        self.items.make("fast", "json", document("json", 1000))
        request = get("fast", "k500")
        idle = load(SERVICE, request, seconds=2)
        for number in range(50):
            load(SERVICE, set_to(f"slow-{number}", "k5"), seconds=0.001)
        time.sleep(max(0, made + 59.5 - time.monotonic()) if strategy == TIMED else 2.5 if strategy == DELAYED else 0)
        saving = load(SERVICE, request, seconds=2)
        self.report.at_most(f"others' p99 while 50 {name} items save to a slow disk, of idle", saving.p99 / idle.p99, goals[0])
        self.report.at_least("others' rate then, of idle", saving.rate / idle.rate, goals[1])
        self.items.end()

    def slow_raw_sets(self) -> None:
        """An instant item answers a raw set when both its files are on the disk; all others wait for that."""
        self.items.make("slow", "json", document("json", 100), INSTANT)
        self.items.make("fast", "json", document("json", 1000))
        with subprocess.Popen(load_command(SERVICE, change_one("json", "slow"), seconds=3), stdout=subprocess.DEVNULL):
            waiting = load(SERVICE, get("fast", "k500"), seconds=2)
        self.report.note(f"others' latency beside one client's raw sets of an instant item on a slow disk: median "
                         f"{waiting.p50:,.0f} us, 99 % {waiting.p99:,.0f} us")
        self.items.end()

    def key_value_server(self) -> None:
        """What a user would pick instead, where it is installed."""
        socket = DIR / "kv"
        try:
            server = running(pinned(0, "redis-server", "--port", 0, "--unixsocket", socket, "--save", ""), socket)
            with server:
                self.beside_key_value(socket)
        except FileNotFoundError:
            self.report.note("no redis-server here: nothing to compare with")

    def beside_key_value(self, socket: pathlib.Path) -> None:
        value = b"v" * 12288
        change = b"*3\r\n$3\r\nSET\r\n$1\r\nk\r\n$12288\r\n" + value + b"\r\n"
        load(socket, change, reply=5, seconds=0.05)
        read = b"*2\r\n$3\r\nGET\r\n$1\r\nk\r\n"
        bare_cost = bare("json", DIR / "setting/one-json.json", "k500")
        library = {"get": bare_cost["lookup"], "set": bare_cost["lookup"] + bare_cost["set"] + bare_cost["wake"]}
        requests = {"get": (read, 8 + 12288 + 2, get("one-json", "k500"), 33), "set": (change, 5, set_to("one-json", "k500"), 24)}
        for name, (theirs, length, ours, reply) in requests.items():
            for clients in (1, 50):
                with self.echo("raw", reply, library[name]):
                    other, done, floor = in_turn(
                        lambda: load(socket, theirs, clients, length), lambda: load(SERVICE, ours, clients),
                        lambda: load(DIR / "echo.raw.busy", ours, clients))
                goal = 1.4 if name == "get" and clients == 1 else 1
                self.report.rate(f"{name}, {clients} client{'s' * (clients > 1)}, beside a key-value server's {name.upper()}",
                                 done, other, goal, floor)

    def message_bus(self) -> None:
        """What a user would pick instead, on the message bus: a call of 12,288 bytes, and dconf's synchronous write."""
        calls = ("taskset -c 0 bin/speed_dbus serve & taskset -c 0 bin/speed_dbus call 12288 1 || sleep 0.2; "
                 "taskset -c 0 bin/speed_dbus call 12288 1; kill $!")
        for program, script in (("speed_dbus", calls), ("speed_dconf", "taskset -c 0 bin/speed_dconf")):
            if not (BUILD / "bin" / program).exists():
                self.report.note(f"{program} was not built: nothing to compare with")
                continue
            run = subprocess.run(["dbus-run-session", "--", "sh", "-c", script], cwd=BUILD, stdout=subprocess.PIPE,
                                 stderr=subprocess.DEVNULL, text=True, check=False,
                                 env={**os.environ, "XDG_RUNTIME_DIR": str(DIR), "HOME": str(DIR)})
            figure = float(run.stdout.split()[-1])
            if program == "speed_dbus":
                done = load(SERVICE, get("one-json", "k500"))
                self.report.at_least("get, 1 client, of a call of as many bytes on the message bus", done.rate / figure, 1)
            else:
                durable = load(SERVICE, raw_set("durable-json-1000", "k5", "x")).p50
                self.report.at_most("durable raw set, 1,000 keys, of dconf's synchronous write", durable / figure, 0.5)

    def paths_inside(self) -> None:
        command = pinned(0, BUILD / "bin/speed_paths", DIR, "--benchmark_format=json", "--benchmark_min_time=0.2")
        out = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=True).stdout
        for each in json.loads(out)["benchmarks"]:
            self.report.note(f"inside: {each['name']} {each['cpu_time'] / 1000:,.2f} us")


def main() -> int:
    os.environ["KESTREL_ROOT"] = str(DIR)
    report = Report(BUILD, QUICK)
    with service() as process:
        bench = Bench(report)
        for step in (bench.requests, bench.many_keys, lambda: bench.calls(process), bench.key_value_server, bench.durable,
                     bench.message_bus):
            step()
        if not QUICK:
            bench.each_case()
            bench.paths_inside()
        bench.items.end()
        bench.live_items()
        bench.items.end()
    with service(LD_PRELOAD=str(BUILD / "lib/libslow_disk.so")):
        bench.slow_disk("delayed", DELAYED, (1.3, 0.9))
        if not QUICK:
            bench.slow_disk("timed", TIMED)
            bench.slow_raw_sets()
    return report.write()


sys.exit(main())
