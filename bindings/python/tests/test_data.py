import datetime
import multiprocessing
from decimal import Decimal

import pytest
import zb
from conftest import ANNA, BOB, CARLA, FIELDS


def test_records_come_back_as_they_were_put(people):
    assert list(people) == [CARLA, ANNA, BOB]
    assert people.record(3) == BOB
    assert len(people) == 3
    assert people.size_fits


def test_the_bytes_of_a_record(people, place):
    people.close()
    header = 32 + 32 * len(FIELDS) + 1
    stored = (place / "PEOPLE.DBF").read_bytes()[header:]
    assert stored == (
        b" CARLA        30.25 5219700501T         1"
        b" ANNA         10.00           ?          "
        b" BOB         -20.50  719991231F          \x1a"
    )


def test_rows_are_named_tuples(people):
    rows = list(people.rows())
    assert [row.NAME for row in rows] == ["CARLA", "ANNA", "BOB"]
    assert rows[0]._fields == ("NAME", "PAY", "AGE", "BORN", "MEMBER", "NOTES")


def test_deleted_records_are_passed_over_unless_wanted(people):
    people.delete(2)
    assert [number for number, _ in people.records()] == [1, 3]
    assert [number for number, _ in people.records(deleted=True)] == [1, 2, 3]
    assert people.is_deleted(2)
    people.update(2, NAME="ANNE")
    assert people.is_deleted(2)
    people.recall(2)
    assert people.record(2)["NAME"] == "ANNE"
    assert not people.is_deleted(2)


def test_update_leaves_other_fields_alone(people):
    people.update(1, pay=Decimal("31"), born=None)
    assert people.record(1) == {**CARLA, "PAY": Decimal("31.00"), "BORN": None}


def test_pack_removes_deleted_records_and_their_memos(people, place):
    people.update(3, NOTES="another")
    people.delete(1)
    people.pack()
    people.pack_memos()
    assert list(people) == [ANNA, {**BOB, "NOTES": "another"}]
    assert b"a note" not in (place / "PEOPLE.DBT").read_bytes()


def test_what_does_not_fit_is_refused_and_nothing_is_written(people):
    with pytest.raises(ValueError, match="NAME holds 10 bytes"):
        people.append(NAME="BARTHOLOMEW")
    with pytest.raises(ValueError, match="PAY holds 8 bytes"):
        people.append(PAY=Decimal("123456789"))
    for negative in (-123456, -99999.995, Decimal("-99999.995")):
        with pytest.raises(ValueError, match="PAY holds 8 bytes"):
            people.append(PAY=negative)
    with pytest.raises(zb.Error) as failure:
        people.append(PAY=1e12)
    assert failure.value.code == zb.Code.ErrFieldValue
    with pytest.raises(TypeError):
        people.append(BORN="1970-05-01")
    with pytest.raises(zb.Error) as failure:
        people.append(NOBODY=1)
    assert (failure.value.name, failure.value.call) == ("ErrFieldName", "ZBDDFNAM2NO")
    assert str(failure.value) == "ZBDDFNAM2NO: ErrFieldName (-28)"
    assert len(people) == 3
    assert list(people) == [CARLA, ANNA, BOB]


def test_texts_have_the_encoding_of_the_file(place):
    zb.create("T.DBF", [("A", "C", 4)])
    with zb.open("T.DBF", "r+", encoding="cp850") as data:
        data.append(A="ÄÖ")
        with pytest.raises(UnicodeEncodeError):
            data.append(A="漢")
    stored = bytearray((place / "T.DBF").read_bytes())
    assert stored[65:70] == b" \x8e\x99  "
    stored[29] = 0x02
    (place / "T.DBF").write_bytes(stored)
    with zb.open("T.DBF") as data:
        assert data.encoding == "cp850"
        assert data.record(1) == {"A": "ÄÖ"}
    stored[29] = 0
    (place / "T.DBF").write_bytes(stored)
    (place / "T.cpg").write_text("850")
    with zb.open("T.DBF") as data:
        assert data.encoding == "cp850"
    (place / "T.cpg").unlink()
    with zb.open("T.DBF") as data:
        assert data.encoding == "cp1252"


def test_numbers_that_other_programs_left(place):
    zb.create("N.DBF", [("A", "N", 5), ("B", "N", 6, 2)])
    with zb.open("N.DBF", "r+") as data:
        data.append(A=12, B=1.5)
    stored = bytearray((place / "N.DBF").read_bytes())
    start = 32 + 64 + 1 + 1
    stored[start : start + 11] = b" 12.5 1E2  "
    (place / "N.DBF").write_bytes(stored)
    with zb.open("N.DBF") as data:
        assert data.record(1) == {"A": Decimal("12.5"), "B": Decimal("1E2")}
    stored[start : start + 11] = b"*****  7 x "
    (place / "N.DBF").write_bytes(stored)
    with zb.open("N.DBF") as data:
        assert data.record(1) == {"A": 0.0, "B": 7.0}


def test_the_float_type_and_counted_memos_of_another_dialect(place):
    zb.create("F.DBF", [("A", "F", 10, 3), ("M", "M")], dialect=zb.Dialect.DB4)
    with zb.open("F.DBF", "r+", dialect=zb.Dialect.DB4) as data:
        data.append(A=2.125, M="counted")
    with zb.open("F.DBF") as data:
        assert data.dialect == zb.Dialect.DB4
        assert data.record(1) == {"A": 2.125, "M": "counted"}


def test_memos_in_an_fpt_file(place):
    zb.create("f.dbf", [("M", "M")], dialect=zb.Dialect.FOX255)
    assert (place / "f.fpt").exists()
    with zb.open("f.dbf", "r+") as data:
        data.append(M="x" * 1000)
        with pytest.raises(ValueError, match="zero byte"):
            data.append(M="a\0b")
    with zb.open("f.dbf") as data:
        assert data.record(1) == {"M": "x" * 1000}
        assert len(data) == 1


def test_a_file_opened_to_be_read_is_not_changed(people):
    with zb.open("PEOPLE.DBF") as data:
        with pytest.raises(zb.Error) as failure:
            data.append(NAME="X")
    assert failure.value.name == "ErrReadOnly"
    with pytest.raises(ValueError):
        zb.open("PEOPLE.DBF", "w")


def test_a_closed_file_says_so(people):
    people.close()
    people.close()
    with pytest.raises(ValueError, match="closed"):
        len(people)


def test_a_file_that_is_not_there(place):
    with pytest.raises(FileNotFoundError):
        zb.open("NOTHING.DBF")


def test_a_lock_of_another_is_waited_for(people):
    with zb.open("PEOPLE.DBF", "r+", wait=0.05) as other:
        with people.lock_record(2):
            with pytest.raises(zb.LockError) as failure:
                other.update(2, NAME="X")
            other.update(3, NAME="X")
        assert failure.value.name == "ErrLockViolation"
        with people.lock():
            with pytest.raises(zb.LockError):
                other.append(NAME="X")
            people.append(NAME="DORA")
            people.update(1, NAME="CARL")
        other.append(NAME="EMIL")
    people.refresh()
    assert [row["NAME"] for row in people] == ["CARL", "ANNA", "X", "DORA", "EMIL"]


def append_many(count):
    with zb.open("PEOPLE.DBF", "r+") as data:
        for number in range(count):
            data.append(NAME="P", AGE=number)


def test_processes_append_side_by_side(people):
    spawn = multiprocessing.get_context("spawn")
    workers = [spawn.Process(target=append_many, args=(50,)) for _ in range(3)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
        assert worker.exitcode == 0
    people.refresh()
    assert sorted(row["AGE"] for row in people if row["NAME"] == "P") == sorted(list(range(50)) * 3)


def test_a_walk_ends_when_the_file_is_closed(people):
    walk = iter(people)
    next(walk)
    people.close()
    with pytest.raises(RuntimeError):
        next(walk)


def test_dates_at_the_ends(place):
    zb.create("D.DBF", [("D", "D")])
    with zb.open("D.DBF", "r+") as data:
        for day in (datetime.date(1, 1, 1), datetime.date(9999, 12, 31), datetime.date(2000, 2, 29)):
            data.append(D=day)
        assert [row["D"] for row in data] == [
            datetime.date(1, 1, 1),
            datetime.date(9999, 12, 31),
            datetime.date(2000, 2, 29),
        ]
