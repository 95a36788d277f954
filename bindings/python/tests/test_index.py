import datetime
import random
from decimal import Decimal

import pytest
import zb
from conftest import ANNA, BOB, CARLA

FILES = ["x.ndx", "x.ntx", "x.idx"]


@pytest.fixture(params=FILES + ["mdx"])
def build(request, people, monkeypatch):
    """Builds an index over the people, of each kind in turn, and opens it."""
    opened = []

    def make(expression, type=None, length=0):
        if request.param != "mdx":
            zb.build_index(people, request.param, expression, type, length)
            index = zb.Index(request.param, "r+", type=type or people.fields[people._numbers[expression]].type)
        else:
            monkeypatch.setenv("ZB_TODAY", "1999-12-31")
            zb.MdxFile.create("x.mdx")
            file = zb.MdxFile("x.mdx", "r+")
            file.build(people, "TAG", expression, type, length)
            index = file["TAG"]
            opened.append(file)
        opened.insert(0, index)
        return index

    yield make
    for thing in opened:
        thing.close()


def test_text_keys(build, people):
    index = build("NAME")
    assert index.expression == "NAME"
    assert [entry.record for entry in index] == [2, 3, 1]
    assert [entry.record for entry in reversed(index)] == [1, 3, 2]
    assert index.first() == zb.Entry("ANNA      ", 2)
    assert index.last().record == 1
    assert index.find("BOB") == zb.Entry("BOB       ", 3)
    assert index.find("BOA") is None
    assert index.find("AAA") is None
    assert index.find("ZZZ") is None
    assert list(people.in_order(index)) == [ANNA, BOB, CARLA]


def test_numbers_and_dates(build, people):
    pay = build("PAY")
    assert [entry.record for entry in pay] == [3, 2, 1]
    assert pay.find(Decimal("30.25")).record == 1
    assert pay.find(-20.5).record == 3
    assert pay.find(11) is None


def test_dates(people):
    people.update(2, BORN=datetime.date(1960, 1, 1))
    zb.build_index(people, "born.ndx", "BORN")
    with zb.Index("born.ndx") as born:
        assert [entry.record for entry in born] == [2, 1, 3]
        assert born.find(datetime.date(1999, 12, 31)).record == 3


def test_entries_come_and_go(build, people):
    index = build("NAME")
    people._read(3)
    key = index.key_of(people)
    assert index.delete(key, 3)
    assert not index.delete(key, 3)
    assert not index.delete("AAA", 2)
    assert [entry.record for entry in index] == [2, 1]
    index.add("BOB", 3)
    assert [entry.record for entry in index] == [2, 3, 1]


def test_a_walk_may_delete_what_it_sees(build):
    index = build("NAME")
    for entry in index:
        assert index.delete(entry.key, entry.record)
    assert list(index) == []
    assert index.first() is None and index.last() is None


def test_a_walk_may_be_mixed_with_finds(build):
    index = build("NAME")
    seen = []
    for entry in index:
        seen.append(entry.record)
        index.find("ANNA")
    assert seen == [2, 3, 1]


def test_entries_that_begin_with_a_text(people):
    for name in ("ABEL", "ABE", "AB"):
        people.append(NAME=name)
    zb.build_index(people, "x.ndx", "NAME")
    with zb.Index("x.ndx") as index:
        assert [entry.record for entry in index.starting_with("AB")] == [6, 5, 4]
        assert [entry.record for entry in index.starting_with("C")] == [1]
        assert list(index.starting_with("D")) == []


def test_an_index_opened_to_be_read_is_not_changed(people):
    zb.build_index(people, "x.ndx", "NAME")
    with zb.Index("x.ndx") as index, pytest.raises(zb.Error) as failure:
        index.add("X", 1)
    assert failure.value.name == "ErrReadOnly"


@pytest.mark.parametrize("name", FILES)
def test_random_changes_keep_every_key(place, name):
    zb.create("r.dbf", [("K", "C", 6)])
    chance = random.Random(5)
    keys = {}
    with zb.open("r.dbf", "r+", exclusive=True) as data:
        for _ in range(300):
            key = "".join(chance.choices("ABC", k=4))
            keys[data.append(K=key)] = key
        zb.build_index(data, name, "K")
    model = {(key.ljust(6), record) for record, key in keys.items()}
    with zb.Index(name, "r+") as index:
        for step in range(1500):
            if model and chance.random() < 0.5:
                key, record = chance.choice(sorted(model))
                assert index.delete(key, record)
                model.remove((key, record))
            else:
                key, record = "".join(chance.choices("ABC", k=4)).ljust(6), 1000 + step
                index.add(key, record)
                model.add((key, record))
        assert sorted(index) == sorted(model)


def test_the_tags_of_an_mdx_file(people, monkeypatch):
    monkeypatch.setenv("ZB_TODAY", "1999-12-31")
    zb.MdxFile.create("p.mdx")
    with zb.MdxFile("p.mdx", "r+") as file:
        file.build(people, "NAME", "NAME")
        file.build(people, "BOTH", "NAME+STR(PAY,8,2)", "C", 18)
        file.create_tag("EMPTY", "NAME")
        assert list(file) == ["NAME", "BOTH", "EMPTY"]
        assert len(file) == 3
        with file["both"] as tag:
            assert tag.name == "BOTH"
            assert tag.first().key == "ANNA         10.00"
        file.erase("NAME")
        assert list(file) == ["EMPTY", "BOTH"]


def test_a_key_needs_a_type(people):
    with pytest.raises(ValueError, match="type of the key"):
        zb.build_index(people, "x.ndx", "LEFT(NAME,2)")
    with pytest.raises(ValueError, match="ends in"):
        zb.Index("x.cdr")
