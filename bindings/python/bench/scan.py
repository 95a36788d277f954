"""Reads every field of every record, by this package and by Debian's pure-Python readers.

Usage: scan.py [records], 1 million unless said. Needs python3-dbfread and python3-dbf.
"""

import datetime
import os
import sys
import tempfile
import time
from decimal import Decimal

import dbf
import dbfread
import zb


def make(records):
    fields = [("NAME", "C", 20), ("CITY", "C", 15), ("PAY", "N", 10, 2), ("AGE", "N", 3), ("BORN", "D"), ("OK", "L")]
    zb.create("scan.dbf", fields)
    first = datetime.date(1970, 1, 1)
    with zb.open("scan.dbf", "r+", exclusive=True) as data:
        for number in range(records):
            data.append(
                NAME=f"NAME{number}",
                CITY="SOMEWHERE",
                PAY=Decimal(number % 10000000) / 100,
                AGE=number % 100,
                BORN=first + datetime.timedelta(number % 9999),
                OK=number % 2 == 0,
            )


def by_zb():
    with zb.open("scan.dbf") as data:
        return sum(1 for _ in data)


def by_dbfread():
    return sum(1 for _ in dbfread.DBF("scan.dbf"))


def by_dbf():
    with dbf.Table("scan.dbf") as table:
        return sum(1 for row in table if (row.name, row.city, row.pay, row.age, row.born, row.ok) != ())


def main():
    records = int(sys.argv[1]) if len(sys.argv) > 1 else 1_000_000
    with tempfile.TemporaryDirectory() as place:
        os.chdir(place)
        make(records)
        times = {}
        for _ in range(3):
            for reader in (by_zb, by_dbfread, by_dbf):
                start = time.perf_counter()
                if reader() != records:
                    raise SystemExit(f"{reader.__name__} lost records")
                took = time.perf_counter() - start
                times[reader] = min(took, times.get(reader, took))
        for reader, took in times.items():
            print(f"{reader.__name__[3:]:8} {took / records * 1e6:6.2f} us a record, {took / times[by_zb]:5.2f} of zb's time")
        os.chdir("/")


main()
