import datetime
from decimal import Decimal

import pytest
import zb

FIELDS = [("NAME", "C", 10), ("PAY", "N", 8, 2), ("AGE", "N", 3), ("BORN", "D"), ("MEMBER", "L"), ("NOTES", "M")]
CARLA = {
    "NAME": "CARLA",
    "PAY": Decimal("30.25"),
    "AGE": 52,
    "BORN": datetime.date(1970, 5, 1),
    "MEMBER": True,
    "NOTES": "a note",
}
ANNA = {"NAME": "ANNA", "PAY": Decimal("10.00"), "AGE": None, "BORN": None, "MEMBER": None, "NOTES": None}
BOB = {
    "NAME": "BOB",
    "PAY": Decimal("-20.50"),
    "AGE": 7,
    "BORN": datetime.date(1999, 12, 31),
    "MEMBER": False,
    "NOTES": None,
}


@pytest.fixture
def place(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    return tmp_path


@pytest.fixture
def people(place):
    zb.create("PEOPLE.DBF", FIELDS)
    with zb.open("PEOPLE.DBF", "r+") as data:
        for record in (CARLA, ANNA, BOB):
            data.append(record)
        yield data
