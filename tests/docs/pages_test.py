"""What the pages say of the tree: links lead somewhere, every error of the log is explained, and only those; programs on
a page are the examples."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).parents[2]
faults: "list[str]" = []


def anchor(heading: str) -> str:
    return re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def check_links(page: pathlib.Path, text: str) -> None:
    for target in re.findall(r"\]\(([^)\s]+)\)", text):
        name, _, part = target.partition("#")
        if name.startswith("http"):
            continue
        file = page.parent / name if name else page
        if not file.exists():
            faults.append(f"{page}: no {target}")
        elif part and part not in map(anchor, re.findall(r"^#+ (.*)$", file.read_text(), re.M)):
            faults.append(f"{page}: no heading {target}")


def check_programs(page: pathlib.Path, text: str) -> None:
    """A block that begins like an example is that example."""
    examples = [file.read_text() for file in (ROOT / "examples").rglob("settings.*")]
    for block in re.findall(r"^```(?:cpp|c|python)\n(.*?)^```$", text, re.M | re.S):
        for example in examples:
            if block.splitlines()[0] == example.splitlines()[0] and block != example:
                faults.append(f"{page}: differs from the example: {block.splitlines()[0]}")


SOURCES = [file.read_text() for base in ("system_server", "platform") for file in (ROOT / base).rglob("*.*")
           if file.suffix in (".cpp", ".h")]


def error_lines() -> "set[str]":
    """The formats of level 3, with ... for what changes."""
    call = r'(?:ACM_LOG\(ACM_ERROR,|KESTREL_LOG\(3,|KESTREL_LOG_ENDED\(|PL_WriteLog\(LOG_MODULE, 3,[^"]*)\s*'
    literals = r'((?:"(?:[^"\\]|\\.)*"|\s|PRIu64)+)'
    found = set()
    for statement in (statement for source in SOURCES for statement in re.findall(call + literals, source)):
        line = "".join(text or unit for text, unit in re.findall(r'"((?:[^"\\]|\\.)*)"|PRI(u)64', statement))
        found.add(re.sub(r"%[-0-9.*]*[a-z]+", "...", line.replace("\\n", "")).strip())
    return found - {"", "..."}


def check_log() -> None:
    text = (ROOT / "docs/operation.md").read_text()
    section = text[text.index("## Every error in the log"):text.index("**Faults that the libraries tell.**")]
    explained = set()
    for row in re.findall(r"^\| (`.*?) \|", section, re.M):
        explained.update(re.findall(r"`([^`]+)`", row))
    written = error_lines()
    faults.extend(f"docs/operation.md does not explain: {line}" for line in sorted(written - explained))
    for line in sorted(explained - written):
        # Two lines are put together otherwise; their longest piece is in the sources.
        if not any(max(line.split("..."), key=len).strip(": ") in source for source in SOURCES):
            faults.append(f"docs/operation.md explains what nothing writes: {line}")


for page in ROOT.rglob("*.md"):
    if "build" not in page.relative_to(ROOT).parts:
        check_links(page, page.read_text())
        check_programs(page, page.read_text())
check_log()
print("\n".join(faults))
sys.exit(bool(faults))
