#!/usr/bin/env python3
"""Runs what the documentation shows, and compares what comes out.

    tests/docs/run.py [--build build/release] [document...]

Each document gets a directory of its own that looks like a checkout: include,
build, bindings, samples and the like are links, `zb` is on the path, and today is
1999-12-31. Its blocks run from top to bottom, and a block finds the files that
those before it have left. The first word behind ``` says what a block is:

    c, cpp        A program is compiled and run; with a file name behind it
                  ("c people.c") it is saved and compiled, for a console to run.
                  Without a main it is compiled alone.
    python        Run; with a file name, saved.
    console       Lines that begin with "$ " are commands, "> " goes on with one,
                  and what follows is their output, exactly; "..." stands for any
                  lines, or for the rest of one. All commands must succeed; in "console fails" the last
                  must not.
    sh            A script that must succeed; its output doesn't matter. "sh built"
                  shows commands that take long: they must stand in scripts/,
                  perhaps with more options.
    output        What the program before it writes.
    hex FILE      Bytes of a file: an offset, up to 16 bytes, a remark. "..." leaves
                  out bytes, and a line without an offset goes on where the one
                  before it ended.
    text, ini     Not run.

A comment <!-- sh ... --> (or c, python, ...) is run like a block and not shown: it
makes what a dump shows. Besides the blocks, links must lead somewhere, and
docs/codes.md must tell every code of zb.h with its number.
"""

import argparse
import concurrent.futures
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
from typing import NamedTuple

ROOT = pathlib.Path(__file__).resolve().parents[2]

# Commands there take minutes, or another system.
NOT_RUN = {"benchmarks.md", "fuzzing.md", "reliability.md", "windows.md"}

COMPILERS = {
    "c": ["cc", "-std=c99", "-Wall", "-Wextra", "-Wpedantic", "-Werror"],
    "cpp": ["c++", "-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Werror"],
}
PASSIVE = {"text", "ini"}


class Failure(Exception):
    pass


class Block(NamedTuple):
    line: int
    kind: str
    words: list[str]
    text: str
    hidden: bool


def blocks_of(document: pathlib.Path) -> list[Block]:
    found = []
    lines = document.read_text(encoding="utf-8").splitlines()
    i = 0
    while i < len(lines):
        start = i + 1
        fence = re.match(r"( *)(`{3,})(.*)$", lines[i])
        comment = re.match(r"<!-- (c|cpp|python|sh|console|hex|output)\b(.*)$", lines[i])
        if not fence and not comment:
            if re.match(r"    \S", lines[i]) and i > 0 and not lines[i - 1].strip():
                raise Failure(f"{document.name}:{start}: an indented block isn't run; use ```")
            i += 1
            continue
        info = (fence[3] if fence else comment[1] + comment[2]).split()
        body = []
        for i in range(i + 1, len(lines)):
            if fence and lines[i].strip() == fence[2] or comment and lines[i].strip() == "-->":
                break
            body.append(lines[i].removeprefix(fence[1]) if fence else lines[i])
        else:
            raise Failure(f"{document.name}:{start}: a block without an end")
        if not info:
            raise Failure(f"{document.name}:{start}: a block that doesn't say what it is")
        found.append(Block(start, info[0], info[1:], "".join(line + "\n" for line in body), not fence))
        i += 1
    return found


def same(expected: str, actual: str) -> bool:
    if expected.endswith("..."):
        return actual.startswith(expected[:-3])
    return expected.rstrip() == actual.rstrip()


def matches(expected: list[str], actual: list[str]) -> bool:
    if not expected:
        return not actual
    if expected[0].strip() == "...":
        return any(matches(expected[1:], actual[i:]) for i in range(len(actual) + 1))
    return bool(actual) and same(expected[0], actual[0]) and matches(expected[1:], actual[1:])


def in_order(words: list[str], line: list[str]) -> bool:
    """Whether a line holds the words in their order, with others between them."""
    rest = iter(line)
    return all(word in rest for word in words)


class Document:
    """One document at work in its directory."""

    def __init__(self, path: pathlib.Path, place: pathlib.Path, build: pathlib.Path) -> None:
        self.path = path
        self.place = place
        self.counts: dict[str, int] = {}
        self.programs = 0
        for name in ("include", "bindings", "samples", "scripts", "docs", "README.md"):
            (place / name).symlink_to(ROOT / name)
        (place / "build").mkdir()
        (place / "build" / "release").symlink_to(build)
        self.environment = {
            **os.environ,
            "HOME": str(place),
            "LC_ALL": "C.UTF-8",
            "LD_LIBRARY_PATH": str(build),
            "PATH": f"{build / 'tools' / 'zb'}:{os.environ['PATH']}",
            "PYTHONDONTWRITEBYTECODE": "1",
            "PYTHONPATH": str(ROOT / "bindings" / "python"),
            "TZ": "UTC",
            "ZB_LIBRARY": str(build / "libzb.so"),
            "ZB_TODAY": "1999-12-31",
        }

    def shell(self, command: list[str], text: str | None = None) -> tuple[int, str]:
        done = subprocess.run(
            command,
            cwd=self.place,
            env=self.environment,
            input=text,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            encoding="utf-8",
            errors="replace",
            timeout=60,
        )
        return done.returncode, done.stdout

    def must(self, command: list[str], text: str | None = None) -> str:
        status, output = self.shell(command, text)
        if status != 0:
            raise Failure(f"exit status {status}\n{output}")
        return output

    def compare(self, expected: str, actual: str) -> None:
        if not matches(expected.splitlines(), actual.splitlines()):
            raise Failure(f"shown:\n{expected}came out:\n{actual}")

    def program(self, block: Block) -> str | None:
        """Compiles, and runs unless it was to be saved; gives what it wrote."""
        self.programs += 1
        name = block.words[0] if block.words else f"block{self.programs}.{block.kind}"
        source = self.place / name
        text = block.text
        main = re.search(r"\bint main\(", text) is not None
        if not main and "#include" not in text:
            text = f'#include <stdio.h>\n#include <string.h>\n#include "zb.h"\n#line 1 "{name}"\n{text}'
        source.write_text(text, encoding="utf-8")
        compiler = COMPILERS[block.kind] + ["-Iinclude", name]
        if not main:
            self.must(compiler + ["-Wno-unused-function", "-c", "-o", "/dev/null"])
            return None
        made = f"block{self.programs}"
        self.must(compiler + ["-Lbuild/release", "-lzb", "-o", made])
        if block.words:
            return None
        return self.must([f"./{made}"])

    def console(self, block: Block) -> None:
        steps: list[tuple[str, str]] = []
        for line in block.text.splitlines():
            if line.startswith("$ "):
                steps.append((line[2:], ""))
            elif line.startswith("> ") and steps and not steps[-1][1]:
                steps[-1] = (steps[-1][0] + "\n" + line[2:], "")
            elif steps:
                steps[-1] = (steps[-1][0], steps[-1][1] + line + "\n")
            else:
                raise Failure("output before the first command")
        mark = "\x01"
        script = "".join(f"{command}\nprintf '{mark}%d{mark}' $?\n" for command, _ in steps)
        parts = self.must(["bash", "-s"], script).split(mark)
        for i, (command, expected) in enumerate(steps):
            output, status = parts[2 * i], int(parts[2 * i + 1])
            fails = block.words == ["fails"] and i == len(steps) - 1
            if (status != 0) != fails:
                raise Failure(f"$ {command}\nexit status {status}\n{output}")
            if not matches(expected.splitlines(), output.splitlines()):
                raise Failure(f"$ {command}\nshown:\n{expected}came out:\n{output}")
            self.counts["commands"] = self.counts.get("commands", 0) + 1

    def built(self, block: Block) -> None:
        lines = [line.split() for script in (ROOT / "scripts").iterdir() for line in script.read_text().splitlines()]
        for command in block.text.splitlines():
            words = command.split()
            script = words[0].startswith("scripts/") and os.access(ROOT / words[0], os.X_OK)
            if not script and not any(in_order(words, line) for line in lines):
                raise Failure(f"no script runs {command}")

    def dump(self, block: Block) -> None:
        name = block.words[0]
        data = (self.place / name).read_bytes()
        place = None
        compared = 0
        for line in block.text.splitlines():
            if not line.strip() or line.strip() == "...":
                place = None
                continue
            offset = re.match(r"([0-9a-fA-F]{3,8})(?=  )", line)
            if offset:
                place = int(offset[1], 16)
                line = line[offset.end() :]
            if place is None:
                raise Failure(f"no offset: {line}")
            shown = []
            for word in line.split():
                if not re.fullmatch(r"[0-9a-fA-F]{2}", word) or len(shown) == 16:
                    break
                shown.append(int(word, 16))
            if not shown:
                raise Failure(f"no bytes: {line}")
            there = data[place : place + len(shown)]
            if list(there) != shown:
                raise Failure(f"{name} at {place:06x}\nshown:    {bytes(shown).hex(' ')}\nit holds: {there.hex(' ')}")
            place += len(shown)
            compared += len(shown)
        self.counts["bytes of dumps"] = self.counts.get("bytes of dumps", 0) + compared

    def run(self, blocks: list[Block]) -> None:
        written: str | None = None
        for block in blocks:
            try:
                before, written = written, None
                if block.kind in COMPILERS:
                    written = self.program(block)
                elif block.kind == "python":
                    if block.words:
                        (self.place / block.words[0]).write_text(block.text, encoding="utf-8")
                    else:
                        written = self.must([sys.executable, "-"], block.text)
                elif block.kind == "console":
                    self.console(block)
                elif block.kind == "sh" and block.words == ["built"]:
                    self.built(block)
                elif block.kind == "sh":
                    self.must(["bash", "-e", "-s"], block.text)
                elif block.kind == "output":
                    if before is None:
                        raise Failure("no program stands before this output")
                    self.compare(block.text, before)
                elif block.kind == "hex":
                    self.dump(block)
                elif block.kind not in PASSIVE:
                    raise Failure(f'a block of the unknown kind "{block.kind}"')
            except (Failure, OSError, subprocess.SubprocessError, IndexError, ValueError) as failure:
                raise Failure(f"{self.path.relative_to(ROOT)}:{block.line}: {block.kind}\n{failure}") from None
            kind = block.kind + (" (not shown)" if block.hidden else "")
            self.counts[kind] = self.counts.get(kind, 0) + 1


def run_document(path: pathlib.Path, build: pathlib.Path) -> dict[str, int]:
    place = pathlib.Path(tempfile.mkdtemp(prefix="zb-docs-"))
    try:
        document = Document(path, place, build)
        document.run(blocks_of(path))
        return document.counts
    finally:
        shutil.rmtree(place, ignore_errors=True)


def anchor_of(heading: str) -> str:
    text = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading)
    return re.sub(r"[^\w\- ]", "", text.strip().lower()).replace(" ", "-")


def without_blocks(path: pathlib.Path) -> str:
    return re.sub(r"^( *)```.*?^ *```$", "", path.read_text(encoding="utf-8"), flags=re.MULTILINE | re.DOTALL)


def check_links(path: pathlib.Path) -> int:
    text = without_blocks(path)
    targets = re.findall(r"\]\(([^)\s]+)\)", text)
    for target in targets:
        if re.match(r"\w+:", target):
            continue
        name, _, anchor = target.partition("#")
        file = (path.parent / name).resolve() if name else path
        if not file.exists():
            raise Failure(f"{path.relative_to(ROOT)}: a link to {target}, which isn't there")
        if anchor:
            headings = re.findall(r"^#+ +(.*)$", without_blocks(file), flags=re.MULTILINE)
            if anchor not in map(anchor_of, headings):
                raise Failure(f"{path.relative_to(ROOT)}: a link to {target}, which has no such heading")
    return len(targets)


def check_codes() -> int:
    header = (ROOT / "include" / "zb.h").read_text(encoding="utf-8")
    listed = re.search(r"enum ZbCode \{(.*?)\};", header, flags=re.DOTALL)
    assert listed
    codes = dict(re.findall(r"(ZB_\w+) = (-?\d+)", listed[1]))
    rows = dict(
        (name, number)
        for number, name in re.findall(
            r"^\| (-?\d+) \| `(ZB_\w+)` \|", (ROOT / "docs" / "codes.md").read_text(encoding="utf-8"), flags=re.MULTILINE
        )
    )
    wrong = {name for name in codes | rows if codes.get(name) != rows.get(name)}
    if wrong:
        raise Failure(f"docs/codes.md and zb.h differ in {', '.join(sorted(wrong))}")
    return len(codes)


def main() -> int:
    parser = argparse.ArgumentParser(description="Runs what the documentation shows.")
    parser.add_argument("--build", default="build/release", help="where the library and the tool are")
    parser.add_argument("documents", nargs="*", type=pathlib.Path)
    arguments = parser.parse_args()
    build = (ROOT / arguments.build).resolve()
    every = [ROOT / "README.md", ROOT / "bindings" / "python" / "README.md", *sorted((ROOT / "docs").glob("*.md"))]
    chosen = [path.resolve() for path in arguments.documents] or [path for path in every if path.name not in NOT_RUN]

    failures = []
    total: dict[str, int] = {}
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        runs = {path: pool.submit(run_document, path, build) for path in chosen}
        for path, run in runs.items():
            try:
                counts = run.result()
            except Failure as failure:
                failures.append(str(failure))
                continue
            for kind, count in counts.items():
                total[kind] = total.get(kind, 0) + count
            told = ", ".join(f"{count} {kind}" for kind, count in sorted(counts.items()))
            print(f"{path.relative_to(ROOT)}: {told or 'nothing to run'}")
    if not arguments.documents:
        for check, what, paths in ((check_links, "links", every), (check_codes, "codes", [None])):
            for path in paths:
                try:
                    total[what] = total.get(what, 0) + (check(path) if path else check())
                except Failure as failure:
                    failures.append(str(failure))
    print("All: " + ", ".join(f"{count} {kind}" for kind, count in sorted(total.items())))
    for failure in failures:
        print(f"\nFAILED {failure}", file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
