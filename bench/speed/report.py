"""The bench's figures: told as they come, written as a page with plots, and held to their goals."""

import math
import pathlib
import subprocess
from typing import Optional, Sequence

SLACK = 1.1  # a goal is missed when it is missed by more than a tenth
FLOOR_SLACK = 1.15  # what a figure may take of its floor, where the goal is out of reach


class Report:
    def __init__(self, folder: pathlib.Path, quick: bool) -> None:
        self._folder = folder
        self._quick = quick
        self._rows: "list[tuple[str, str, str, str]]" = []
        self._notes: "list[str]" = []
        self._costs: "list[tuple[str, ...]]" = []
        self._plots: "list[str]" = []
        self._missed: "list[str]" = []

    def _row(self, figure: str, value: str, limit: str, goal: str, excess: float) -> None:
        """The excess: what is measured as a share of what the goal allows."""
        verdict = "" if not goal else "met" if excess <= 1 else "within a tenth" if excess <= SLACK else "missed"
        self._rows.append((figure, value, limit, f"{goal} {verdict}".strip()))
        print(f"{figure:75} {value:>16} {limit:>22} {goal:>16} {verdict}", flush=True)
        if verdict == "missed":
            self._missed.append(figure)

    def note(self, text: str) -> None:
        self._notes.append(text)
        print(text, flush=True)

    def rate(self, figure: str, done, limit, goal: float, least) -> None:
        """Beside another server: as a share of its rate, or within what an echo takes that is busy for the library's time."""
        share, floor = done.rate / limit.rate, FLOOR_SLACK * 1e6 / least.rate
        self._row(figure, f"{done.rate:,.0f}/s {share:.2f}", f"beside {limit.rate:,.0f}/s", f"{goal:.2f} or {floor:.1f} us",
                  min(goal / share, 1e6 / done.rate / floor))

    def at_most(self, figure: str, value: float, goal: Optional[float]) -> None:
        self._row(figure, f"{value:.2f}", "", "" if goal is None else f"<= {goal}", 0 if goal is None else value / goal)

    def at_least(self, figure: str, value: float, goal: Optional[float]) -> None:
        self._row(figure, f"{value:.2f}", "", "" if goal is None else f">= {goal}", 0 if goal is None else goal / value)

    def growth(self, kind: str, sizes: Sequence[int], times: "dict[str, list[float]]") -> None:
        """The cost of each case over the number of keys, in us."""
        for name, values in times.items():
            self._costs.append((f"{kind}: {name}", *(f"{value:,.1f}" for value in values)))
            print(f"{kind}: {name}".ljust(40), *(f"{size:,} keys {value:,.1f} us" for size, value in zip(sizes, values)), flush=True)
            goal = 1.1 if name in ("load", "save") else 0.1 if kind == "json" and name in ("get", "set") else None
            if goal:
                exponent = math.log(values[-1] / values[0]) / math.log(sizes[-1] / sizes[0])
                self.at_most(f"{kind}: {name}, exponent from {sizes[0]} to {sizes[-1]:,} keys", exponent, goal)
        self._plot(f"growth-{kind}", "keys", "us", sizes, times)

    def latencies(self, figure: str, loads) -> None:
        """The percentiles of each, over the share of requests that took longer."""
        name = "".join(letter if letter.isalnum() else "-" for letter in figure)
        self._plot(name, "per cent of the requests took longer", "us", (50, 10, 1, 0.1), {title: list(load[1:]) for title, load in loads})

    def items(self, counts: Sequence[int], rates: Sequence[float], costs: Sequence[float]) -> None:
        self.at_least(f"get rate with {counts[-1]:,} live items, of that with one", rates[-1] / rates[0], 0.9)
        self.at_most(f"creation and deletion beside {counts[-1]:,} live items, of those beside one", costs[-1] / costs[0], 1.3)
        self._plot("items", "live items", "us", counts, {"creation and deletion": costs, "get": [1e6 / rate for rate in rates]})

    def _plot(self, name: str, x: str, y: str, xs: Sequence[float], series: "dict[str, list[float]]") -> None:
        table = self._folder / f"{name}.table"
        table.write_text("\n".join(" ".join(map(str, row)) for row in zip(xs, *series.values())))
        lines = ", ".join(f"'{table}' using 1:{column} with linespoints title '{title}'"
                          for column, title in enumerate(series, 2))
        script = (f"set terminal svg size 640,360 background '#ffffff'; set output '{self._folder}/{name}.svg'; "
                  f"set logscale xy; set grid; set xlabel '{x}'; set ylabel '{y}'; plot {lines}")
        try:
            subprocess.run(["gnuplot", "-e", script], check=True)
            self._plots.append(name)
        except FileNotFoundError:
            self.note("no gnuplot, no pictures")

    def write(self) -> int:
        page = ["# Speed", "", "| Figure | Service | Limit | Goal |", "|---|---|---|---|"]
        page += ["| " + " | ".join(row) + " |" for row in self._rows]
        if self._costs:
            page += ["", "One client's latency in us, by the number of keys", "", "| Request | 10 | 1,000 | 100,000 |", "|---|---|---|---|"]
            page += ["| " + " | ".join(row) + " |" for row in self._costs]
        page += ["", *[f"- {note}" for note in self._notes], ""]
        page += [f"![{name}]({name}.svg)\n" for name in self._plots]
        (self._folder / "report.md").write_text("\n".join(page))
        print(f"report: {self._folder / 'report.md'}")
        for figure in self._missed:
            print(f"missed: {figure}")
        return int(self._quick and bool(self._missed))
