#!/usr/bin/env python3
"""Lets readers by others, as Debian packages them, read files that this library made.

Each reader is a black box: it gets a file and prints what it sees, and every value
that was put in has to be there, in order. The table of what came of it is
docs/conformance.md; --write writes it anew, otherwise it must be as it stands.

Usage: conformance.py [--write]        ZB_LIBRARY names the library
"""

import datetime
import os
import subprocess
import sys
import tempfile
from decimal import Decimal
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "bindings" / "python"))
os.environ.setdefault("ZB_LIBRARY", str(ROOT / "build" / "release" / "libzb.so.1"))
# An MDX file holds the day that it was made, of the years 1980 to 2019.
os.environ["ZB_TODAY"] = "1999-12-31"

import zb  # noqa: E402

FIELDS = [("NAME", "C", 12), ("PAY", "N", 9, 2), ("BORN", "D"), ("MEMBER", "L")]
RECORDS = [
    ("Carla", Decimal("30.25"), datetime.date(1970, 5, 1), True),
    ("Anna", Decimal("1200.50"), datetime.date(1980, 2, 29), False),
    ("Bob", Decimal("-20.50"), datetime.date(1999, 12, 31), True),
    ("Dora", Decimal("0.00"), datetime.date(2001, 1, 2), False),
]
MEMOS = ["a short memo", "x" * 700, "third", "fourth " * 40]
DIALECTS = {
    zb.Dialect.CLASSIC: "1 classic",
    zb.Dialect.DB4: "2 with counted memos",
    zb.Dialect.CLASSIC_ALT: "3 classic, the other",
    zb.Dialect.FOX128: "4 with .FPT memos",
    zb.Dialect.WIDE: "5 up to 1022 fields",
    zb.Dialect.WIDE_CHAR: "6 wide texts",
    zb.Dialect.EOF_FILL: "7 end mark of a record's length",
    zb.Dialect.FOX255: "8 with .FPT memos, 255 fields",
    zb.Dialect.PADDED_HEADER: "9 padded header",
}


def run(*command):
    done = subprocess.run(command, capture_output=True, timeout=60)
    text = done.stdout.decode("latin-1")
    return text if done.returncode == 0 else ""


def run_python(code, *arguments):
    return run("/usr/bin/python3", "-c", code, *arguments)


def run_perl(code, *arguments):
    return run("perl", "-e", code, *arguments)


DBFREAD = "import dbfread,sys\nfor r in dbfread.DBF(sys.argv[1], encoding='latin-1'): print(*r.values(), sep='|')"
DBF = (
    "import dbf,sys\nt = dbf.Table(sys.argv[1], codepage='cp1252'); t.open()\n"
    "for r in t: print(*[str(v).strip() for v in r], sep='|')"
)
PERL = (
    "use XBase; my $t = new XBase $ARGV[0] or die; for my $i (0 .. $t->last_record) "
    "{ my ($deleted, @v) = $t->get_record($i); print join('|', @v), qq(\\n); }"
)

# Reader, Debian package, what it runs, and what it shows besides texts and numbers.
DATA_READERS = [
    ("dbfdump", "shapelib", lambda path: run("/usr/bin/dbfdump", path), ()),
    ("ogrinfo", "gdal-bin", lambda path: run("ogrinfo", "-al", "-q", path), ("dates",)),
    ("dbview", "dbview", lambda path: run("dbview", path), ("dates",)),
    ("pgdbf", "pgdbf", lambda path: run("pgdbf", *pgdbf_memo(path), path), ("dates", "memos")),
    ("dbfread", "python3-dbfread", lambda path: run_python(DBFREAD, path), ("dates", "memos")),
    ("dbf", "python3-dbf", lambda path: run_python(DBF, path), ("dates", "memos")),
    ("XBase.pm", "libdbd-xbase-perl", lambda path: run_perl(PERL, path), ("dates", "memos")),
]


def pgdbf_memo(path):
    for suffix in (".dbt", ".fpt"):
        memo = Path(path).with_suffix(suffix)
        if memo.exists():
            return ["-m", str(memo)]
    return []


def in_order(text, wanted):
    """Whether the texts stand in the output, one behind the other."""
    at = 0
    for value in wanted:
        at = text.find(value, at)
        if at < 0:
            return False
        at += len(value)
    return True


def make(path, dialect, memos):
    fields = FIELDS + ([("NOTES", "M")] if memos else [])
    zb.create(path, fields, dialect=dialect)
    with zb.open(path, "r+", dialect=dialect, exclusive=True) as data:
        for record, memo in zip(RECORDS, MEMOS):
            values = dict(zip([field[0] for field in FIELDS], record))
            data.append(values, **({"NOTES": memo} if memos else {}))


def whole(output, dates, memos):
    wanted = []
    for (name, pay, _, _), memo in zip(RECORDS, MEMOS):
        wanted += [name] + ([memo.strip()] if memos else [])
        # Numbers come in as many forms as there are readers.
        number = str(pay).rstrip("0").rstrip(".") if pay else "0"
        if number not in output:
            return False
    years = not dates or all(str(born.year) in output for _, _, born, _ in RECORDS)
    return years and in_order(output.replace("\n", " "), wanted)


def data_table():
    lines = ["| dialect | " + " | ".join(reader for reader, *_ in DATA_READERS) + " |"]
    lines.append("|---|" + "---|" * len(DATA_READERS))
    for dialect, title in DIALECTS.items():
        cells = []
        for _, _, read, shows in DATA_READERS:
            make("plain.dbf", dialect, False)
            plain = whole(read("plain.dbf"), "dates" in shows, False)
            make("memos.dbf", dialect, True)
            with_memos = "memos" in shows and whole(read("memos.dbf"), True, True)
            for memo in Path().glob("memos.*"):
                memo.unlink()
            cells.append("data and memos" if plain and with_memos else "data" if plain else "no")
        lines.append(f"| {title} | " + " | ".join(cells) + " |")
    return lines


INDEX = (
    "use XBase::Index; my @o = $ARGV[1] ? (tag => $ARGV[1]) : (); "
    "my $i = new XBase::Index $ARGV[0], @o, type => 'char' or die; "
    "$i->prepare_select or die; while (my ($k, $r) = $i->fetch) { print qq($k|$r\\n); }"
)


SIZES = (500, 2000)


def walks_whole(path, tag, names):
    """Whether another reader walks an index in the right order and meets each key once."""
    wanted = [f"{name}|{number}" for name, number in sorted((name, number) for number, name in enumerate(names, 1))]
    walked = [line.replace(" ", "") for line in run_perl(INDEX, path, tag).splitlines()]
    return walked == wanted


def index_results(count):
    zb.create("many.dbf", [("NAME", "C", 10)])
    names = [f"K{number * 7919 % 10007:05}" for number in range(count)]
    results = {}
    with zb.open("many.dbf", "r+", exclusive=True) as data:
        for name in names:
            data.append(NAME=name)

        def look(title, path, tag=""):
            results[title] = walks_whole(path, tag, names)

        for title in ("NDX", "NTX", "IDX"):
            path = f"x.{title.lower()}"
            zb.build_index(data, path, "NAME", for_reading=True)
            look(f"{title}, built", path)
            zb.create_index(path, "NAME", "C", 10)
            with zb.Index(path, "r+") as index:
                for number, name in enumerate(names, 1):
                    index.add(name, number)
            look(f"{title}, by adds", path)
        zb.build_index(data, "compact.idx", "NAME", compact=True)
        look("IDX, compact", "compact.idx")
        zb.MdxFile.create("many.mdx")
        with zb.MdxFile("many.mdx", "r+") as file:
            file.build(data, "NAME", "NAME")
        look("MDX, built", "many.mdx", "NAME")
    return results


def index_table():
    lines = ["| index | " + " | ".join(f"{count} keys" for count in SIZES) + " |", "|---|" + "---|" * len(SIZES)]
    by_size = [index_results(count) for count in SIZES]
    for title in by_size[0]:
        lines.append(f"| {title} | " + " | ".join("whole" if found[title] else "no" for found in by_size) + " |")
    return lines


def page():
    with tempfile.TemporaryDirectory() as place:
        os.chdir(place)
        data, indexes = data_table(), index_table()
        os.chdir("/")
    readers = ", ".join(f"{reader} ({package})" for reader, package, *_ in DATA_READERS)
    return f"""# What other readers make of our files

Made by a test (`tests/package/conformance.py`) that lets readers by others, as Debian 12 packages them, read what this
library writes:
{readers}.

"data" says that every value came out that the reader shows at all (dbfdump shows neither dates nor logical values),
"data and memos" that every memo did too; dbfdump, ogrinfo and dbview have no memos.

{chr(10).join(data)}

Indexes of texts, walked by XBase.pm from the first entry to the last: "whole" says that each key came once, with its
record, in order. It doesn't know compact IDX files. In the trees of three levels of the larger NTX and IDX files it goes
through some pages twice; their pages and links are sound by `zb index check`, which reads them by itself.

{chr(10).join(indexes)}
"""


def main():
    made = page()
    committed = ROOT / "docs" / "conformance.md"
    if "--write" in sys.argv[1:]:
        committed.write_text(made)
    elif committed.read_text() != made:
        sys.stdout.write(made)
        raise SystemExit("conformance: docs/conformance.md tells another story")
    print("conformance: 1 passed, 0 failed")


main()
