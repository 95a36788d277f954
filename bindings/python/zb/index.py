"""Indexes: NDX, NTX and IDX files, and the tags of MDX files."""

from __future__ import annotations

import ctypes
import datetime
import os
from ctypes import byref, c_char, c_int16, c_int32, c_uint16, c_uint32, c_void_p
from decimal import Decimal
from pathlib import Path
from typing import Iterator, NamedTuple, Union

from . import _native
from ._native import call
from .data import READ_ONLY, SHARED, DataFile
from .errors import Code

Key = Union[str, bytes, int, float, Decimal, datetime.date]

_FAMILIES = {".NDX": "N", ".NTX": "C", ".IDX": "I"}
_KEY_ROOM = 264  # more than the longest key of any family
UNIQUE, COMPACT = 0x80, 0x400


class Entry(NamedTuple):
    """A key and its record. Text keys are str, all others the index's own bytes."""

    key: str | bytes
    record: int


def _letter(path: str) -> str:
    try:
        return _FAMILIES[Path(path).suffix.upper()]
    except KeyError:
        raise ValueError(f"{path}: an index file ends in .ndx, .ntx or .idx") from None


def _key_form(data: DataFile, expression: str, type: str | None, length: int) -> tuple[str, int, int]:
    """Type, length and decimals of a key, from the field that the expression names where they aren't given."""
    for field in data.fields:
        if field.name == expression.strip().upper():
            kind = type or {"F": "N"}.get(field.type, field.type)
            return kind, length or field.width, field.decimals
    if type is None:
        raise ValueError("the type of the key has to be said: 'C', 'D' or 'N'")
    return type, length, 0


def _write_expression(expression: str) -> ctypes.Array[c_char]:
    return ctypes.create_string_buffer(expression.encode("ascii"))


def create_index(
    path: str | os.PathLike[str],
    expression: str,
    type: str = "C",
    length: int = 10,
    decimals: int = 0,
    *,
    unique: bool = False,
    compact: bool = False,
) -> None:
    """Creates an empty index file, replacing one of that name."""
    name, letter = os.fspath(path), _letter(os.fspath(path))
    word = ord(type) | (UNIQUE if unique else 0) | (COMPACT if compact else 0)
    arguments = [os.fsencode(name), word, _write_expression(expression), length]
    call(f"ZBD{letter}CREATE", *arguments, *([decimals] if letter == "C" else []))


def build_index(
    data: DataFile,
    path: str | os.PathLike[str],
    expression: str,
    type: str | None = None,
    length: int = 0,
    decimals: int | None = None,
    *,
    unique: bool = False,
    compact: bool = False,
    for_reading: bool = False,
) -> None:
    """Creates an index file over all records of a data file, deleted ones too.

    Type, length and decimals of the key are those of the field, if the expression is
    the name of one. The file is one that any adds and deletes keep sound: an .NTX
    file is filled key by key for that, unless it is `for_reading`.
    """
    name, letter = os.fspath(path), _letter(os.fspath(path))
    kind, length, field_decimals = _key_form(data, expression, type, length)
    decimals = field_decimals if decimals is None else decimals
    if letter == "C" and not for_reading:
        create_index(path, expression, kind, length, decimals, unique=unique)
        with Index(path, "r+") as index:
            for number in range(1, len(data) + 1):
                data._read(number)
                index.add(index.key_of(data), number)
        return
    word = ord(kind) | (UNIQUE if unique else 0) | (COMPACT if compact else 0)
    arguments = [data._live(), os.fsencode(name), word, _write_expression(expression), length]
    call(f"ZBD{letter}INDEX", *arguments, *([decimals] if letter == "C" else []))
    if letter == "I" and not compact:
        # A build leaves any key as the last separator of a level; one that is above
        # all others, added and deleted, puts the right one there.
        with Index(path, "r+", type=kind) as index:
            highest = b"\xff" * index.key_length
            index.add(highest, 0)
            index.delete(highest, 0)


class Index:
    """An open index. It is walked in order, as often as wanted, and found in by key.

    `type` tells the key's type of an .IDX file, which isn't in the file.
    """

    def __init__(
        self, path: str | os.PathLike[str], mode: str = "r", *, type: str = "C", encoding: str = "cp1252"
    ) -> None:
        self._handle: int | None = None
        if mode not in ("r", "r+"):
            raise ValueError("the mode is 'r' or 'r+'")
        self.path = os.fspath(path)
        letter = _letter(self.path)
        handle = c_uint16()
        call(f"ZBD{letter}OPENX", byref(handle), os.fsencode(self.path), SHARED | (READ_ONLY if mode == "r" else 0))
        self._start(letter, handle.value, encoding)
        if letter == "I":
            call("ZBDIKTYPE", self._handle, ord(type))
        info = _native.NdxInfo() if letter == "N" else _native.NtxInfo()
        call(f"ZBD{letter}INFO", self._handle, byref(info))
        if mode == "r+" and info.accessFlags & 1:
            self.close()
            _native.fail(f"ZBD{letter}OPENX", Code.ErrReadOnly)
        self.key_length: int = info.keyLength
        self._is_text = letter == "C" or chr(info.keyType).upper() in "CL"

    def _start(self, letter: str, handle: int, encoding: str) -> None:
        self._letter, self._handle, self.encoding = letter, handle, encoding
        self._key, self._record = ctypes.create_string_buffer(_KEY_ROOM), c_uint32()
        self._asked = 0  # how often the position has been moved

    @property
    def expression(self) -> str:
        text = ctypes.create_string_buffer(256)
        call("ZBDMTEXPR" if self._letter == "M" else f"ZBD{self._letter}EXPR", self._live(), text)
        return text.value.decode("ascii", "replace")

    # ---- keys

    def key(self, value: Key) -> bytes:
        """A value in the form that the index keeps its keys in. Bytes pass as they are."""
        if isinstance(value, bytes):
            return value
        buffer = ctypes.create_string_buffer(_KEY_ROOM)
        if isinstance(value, str):
            text = value.encode(self.encoding)
            return text.ljust(self.key_length) if self._letter == "I" else text
        if isinstance(value, datetime.date):
            call(f"ZBD{self._letter}KDATE", buffer, f"{value.year:04}{value.month:02}{value.day:02}".encode(), 4)
            return buffer.raw[:8]
        if self._letter == "C":
            call("ZBDCKNUM", self._live(), buffer, float(value))
            return buffer.value
        call(f"ZBD{self._letter}KNUM", buffer, float(value))
        return buffer.raw[: self.key_length]

    def key_of(self, data: DataFile) -> bytes:
        """The key of the record that was read last."""
        if self._letter == "C" and (number := self._number_of(data)) is not None:
            return self.key(number)
        made = c_void_p()
        call(f"ZBD{self._letter}KMAKE", data._live(), self._live(), byref(made))
        if self._is_text:
            text = _native.text_of(made.value)
            return text.ljust(self.key_length) if self._letter == "I" else text
        value = ctypes.string_at(made.value, self.key_length)
        _native.raw("ZBMFREE")(made)
        return value

    def _number_of(self, data: DataFile) -> float | None:
        """The expression's value, if it is a number: ZBDCKMAKE gives negative ones another form than finds use."""
        result = _native.EvalResult()
        expression = _write_expression(self.expression)
        call("ZBDXEVAL", data._live(), expression, byref(result))
        number = ctypes.c_double.from_address(result.value).value if chr(result.type) == "N" else None
        _native.raw("ZBMFREE")(result.value)
        return number

    def _entry(self) -> Entry:
        key = self._key.raw[: self.key_length]
        return Entry(key.decode(self.encoding, "replace") if self._is_text else key, self._record.value)

    # ---- walking and finding

    def _ask(self, operation: str, *more: int) -> int:
        self._asked += 1
        return call(f"ZBD{self._letter}{operation}", self._live(), self._key, byref(self._record), *more)

    def _load(self, key: bytes, record: int = 0) -> None:
        if len(key) >= _KEY_ROOM:
            _native.fail(f"ZBD{self._letter}KFIND", Code.ErrKeyLength)
        ctypes.memmove(self._key, key.ljust(_KEY_ROOM, b"\0"), _KEY_ROOM)
        self._record.value = record

    def __iter__(self) -> Iterator[Entry]:
        """All entries in order. Entries may be added, deleted and found meanwhile."""
        return self._walk("KTOP", "KNEXT")

    def __reversed__(self) -> Iterator[Entry]:
        return self._walk("KBOT", "KPREV")

    def _walk(self, first: str, step: str) -> Iterator[Entry]:
        code = self._ask(first)
        while code not in (Code.KeyEmpty, Code.KeyEnd):
            key, entry, asked = self._key.raw[: self.key_length], self._entry(), self._asked
            yield entry
            if self._asked != asked:
                # The position has been moved. Whoever finds another entry, when this one
                # has gone, stands on the one before it, or on the first of all.
                self._load(key, entry.record)
                if self._ask("KFIND", 2) == 0 and self._entry() != entry and step == "KNEXT":
                    continue
            code = self._ask(step)
            # An NDX index steps nowhere when its first entry, the position, has gone.
            if code == Code.KeyNear and self._letter == "N" and self._ask("KCUR") == Code.KeyNear:
                code = self._ask(first)

    def find(self, key: Key) -> Entry | None:
        """The first entry with a key, or with one that begins with a text; None if there is none."""
        wanted = self.key(key)
        self._load(wanted)
        if self._ask("KFIND", 0) != 0:
            return None
        # A key below all others is answered with the first one.
        return self._entry() if self._key.raw.startswith(wanted) else None

    def starting_with(self, key: Key) -> Iterator[Entry]:
        """All entries with a key, or with one that begins with a text."""
        wanted = self.key(key)
        self._load(wanted)
        if self._ask("KFIND", 0) != 0:
            return
        code = 0
        while code != Code.KeyEnd and self._key.raw.startswith(wanted):
            yield self._entry()
            code = self._ask("KNEXT")

    def first(self) -> Entry | None:
        return None if self._ask("KTOP") == Code.KeyEmpty else self._entry()

    def last(self) -> Entry | None:
        return None if self._ask("KBOT") == Code.KeyEmpty else self._entry()

    # ---- changing

    def add(self, key: Key, record: int) -> None:
        """Adds a key of a record. No key is refused, in a unique index neither. Hold a lock on the data file."""
        self._load(self.key(key))
        call(f"ZBD{self._letter}KADD", self._live(), self._key, record)

    def delete(self, key: Key, record: int) -> bool:
        """Deletes a key of a record; False if it wasn't there. Hold a lock on the data file."""
        wanted = self.key(key)
        # A delete of a key below all others would take the first one.
        self._load(wanted, record)
        if self._ask("KFIND", 2) != 0 or not self._key.raw.startswith(wanted):
            return False
        self._load(wanted)
        call(f"ZBD{self._letter}KDEL", self._live(), self._key, record)
        return True

    # ---- the end

    def _close_call(self) -> str:
        return "ZBDMTCLOSE" if self._letter == "M" else f"ZBD{self._letter}CLOSE"

    def close(self) -> None:
        if self._handle is not None:
            handle, self._handle = self._handle, None
            call(self._close_call(), handle)

    def _live(self) -> int:
        if self._handle is None:
            raise ValueError("the index is closed")
        return self._handle

    def __enter__(self) -> Index:
        return self

    def __exit__(self, *failure: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_handle", None) is not None:
            _native.quietly(self._close_call(), self._handle)


class Tag(Index):
    """An index of an MDX file, got from MdxFile."""

    def __init__(self, file: MdxFile, name: str | int, encoding: str) -> None:
        self._handle = None
        self.path = file.path
        self._file = file  # a file is closed after its tags
        handle = c_int32()
        if isinstance(name, int):
            call("ZBDMTUSEX", byref(handle), file._live(), name)
        else:
            call("ZBDMTUSE", byref(handle), file._live(), name.encode("ascii"))
        self._start("M", handle.value, encoding)
        info = _native.TagInfo()
        call("ZBDMTINFO", self._handle, byref(info))
        self.name = info.name.decode("ascii", "replace")
        self.key_length = info.keyLength
        self._is_text = chr(info.keyType) == "C"


class MdxFile:
    """An open MDX file: `file["TAG"]` is an index, and it is iterated over the names of its tags.

    The format takes dates from 1980 to 2019 alone, which a new file gets from the
    environment variable ZB_TODAY; zb.h tells more.
    """

    def __init__(self, path: str | os.PathLike[str], mode: str = "r", *, encoding: str = "cp1252") -> None:
        self._handle: int | None = None
        if mode not in ("r", "r+"):
            raise ValueError("the mode is 'r' or 'r+'")
        self.path, self.encoding = os.fspath(path), encoding
        handle = c_int16()
        access = SHARED | (READ_ONLY if mode == "r" else 0)
        call("ZBDMOPENX", byref(handle), os.fsencode(self.path), access)
        self._handle = handle.value

    @staticmethod
    def create(path: str | os.PathLike[str], block: int = 2) -> None:
        """Creates a file without tags, in blocks of `block` times 512 bytes."""
        call("ZBDMCREATEX", os.fsencode(path), block, 0)

    def __len__(self) -> int:
        info = _native.MdxInfo()
        call("ZBDMINFO", self._live(), byref(info))
        return info.tagCount

    def __iter__(self) -> Iterator[str]:
        for number in range(1, len(self) + 1):
            with Tag(self, number, self.encoding) as tag:
                yield tag.name

    def __getitem__(self, name: str) -> Tag:
        return Tag(self, name, self.encoding)

    def create_tag(
        self, name: str, expression: str, type: str = "C", length: int = 10, *, unique: bool = False
    ) -> None:
        """Makes an empty tag, in place of one of that name."""
        word = ord(type) | (UNIQUE if unique else 0)
        call("ZBDMTNEW", self._live(), name.encode("ascii"), word, _write_expression(expression), length)

    def build(
        self,
        data: DataFile,
        name: str,
        expression: str,
        type: str | None = None,
        length: int = 0,
        *,
        unique: bool = False,
    ) -> None:
        """Makes a tag over all records of a data file, deleted ones too."""
        kind, length, _ = _key_form(data, expression, type, length)
        word = ord(kind) | (UNIQUE if unique else 0)
        arguments = [name.encode("ascii"), word, _write_expression(expression), length]
        call("ZBDMTINDEX", data._live(), self._live(), *arguments)

    def erase(self, name: str) -> None:
        """Erases a tag, which must not be in use."""
        call("ZBDMTERASE", self._live(), name.encode("ascii"))

    def close(self) -> None:
        if self._handle is not None:
            handle, self._handle = self._handle, None
            call("ZBDMCLOSE", handle)

    def _live(self) -> int:
        if self._handle is None:
            raise ValueError("the index file is closed")
        return self._handle

    def __enter__(self) -> MdxFile:
        return self

    def __exit__(self, *failure: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_handle", None) is not None:
            _native.quietly("ZBDMCLOSE", self._handle)
