"""Data files and their records."""

from __future__ import annotations

import builtins
import contextlib
import datetime
import os
import struct
import time
from collections import namedtuple
from ctypes import byref, c_char, c_double, c_int16, c_uint16, c_uint32
from decimal import Decimal
from enum import IntEnum
from functools import lru_cache
from pathlib import Path
from typing import Any, Callable, Iterable, Iterator, NamedTuple, Union

from . import _native
from ._native import call
from .encodings import encoding_of
from .errors import Code, LockError
from .memo import MemoFile

READ_ONLY, SHARED = 0x100, 0x400
APPEND, UPDATE = 0, 0x100
CONFLICT = 100

Value = Union[str, int, float, Decimal, bool, datetime.date, None]


class Dialect(IntEnum):
    CLASSIC = 1
    DB4 = 2
    CLASSIC_ALT = 3
    FOX128 = 4
    WIDE = 5
    WIDE_CHAR = 6
    EOF_FILL = 7
    FOX255 = 8
    PADDED_HEADER = 9


class Lock(IntEnum):
    """The kinds of lock of a whole file."""

    HEADER = 1  # whoever appends
    FILE = 2
    RECORDS = 3  # all records, and readers, but not the header
    SHARED = 4  # up to 62 readers; refused while a record is locked


class Field(NamedTuple):
    """A field: its type is C, D, F, L, M or N, its width counts bytes."""

    name: str
    type: str
    width: int = 0
    decimals: int = 0


class _Header(NamedTuple):
    """What a file says of itself before it is opened."""

    version: int
    records: int
    length: int
    record_length: int
    production: int
    language: int


def _read_header(path: str) -> _Header:
    with builtins.open(path, "rb") as file:
        head = file.read(32).ljust(32, b"\0")
    return _Header(head[0], *struct.unpack_from("<IHH", head, 4), head[28], head[29])


def _choose_dialect(path: str, header: _Header) -> Dialect:
    """The dialect to open a file as, which is for the caller to say and not in the file."""
    if header.version == 0x8B:
        return Dialect.DB4
    if header.version == 0xF5:
        return Dialect.FOX255 if header.production <= 1 else Dialect.FOX128
    if header.version == 0x03 and header.record_length > 1:
        end = header.length + header.record_length * header.records
        if os.path.getsize(path) == end + header.record_length:
            return Dialect.EOF_FILL
    return Dialect.CLASSIC


def _memo_place(path: str, dialect: int) -> tuple[str, int]:
    """The name of a data file's memo file, and the mode to open it with."""
    if dialect in (Dialect.FOX128, Dialect.FOX255):
        extension, mode = ".fpt", 4
    else:
        extension, mode = ".dbt", Dialect.CLASSIC if dialect == Dialect.PADDED_HEADER else dialect
    base = Path(path)
    for name in (extension, extension.upper()):
        if base.with_suffix(name).exists():
            return str(base.with_suffix(name)), mode
    return str(base.with_suffix(extension.upper() if base.suffix.isupper() else extension)), mode


def create(
    path: str | os.PathLike[str],
    fields: Iterable[tuple[Any, ...]],
    dialect: int = Dialect.CLASSIC,
    memo_block: int | None = None,
) -> None:
    """Creates an empty data file, and its memo file where it has memo fields.

    A field is a tuple of name, type, width and decimals; widths of D, L and M are
    known, decimals are 0 unless said. Existing files are replaced.
    """
    name = os.fspath(path)
    wanted = [Field(*field) for field in fields]
    specs = (_native.FieldSpec * len(wanted))()
    for spec, field in zip(specs, wanted):
        if len(field.name) > 10:
            _native.fail("ZBDDCREATE", Code.ErrFieldName)
        spec.name, spec.type = field.name.encode("ascii"), ord(field.type)
        spec.width, spec.decimals = field.width, field.decimals
    call("ZBDDCREATE", os.fsencode(name), len(wanted), specs, dialect)
    if any(field.type in "Mm" for field in wanted):
        memo, mode = _memo_place(name, dialect)
        MemoFile.create(memo, mode, memo_block or (64 if mode == 4 else 1))


def open(path: str | os.PathLike[str], mode: str = "r", **options: Any) -> DataFile:
    """Opens a data file: mode "r" to read, "r+" to change it too."""
    return DataFile(path, mode, **options)


@lru_cache(maxsize=1 << 16)
def _date(digits: bytes) -> datetime.date | None:
    try:
        return datetime.date(int(digits[:4]), int(digits[4:6]), int(digits[6:8]))
    except ValueError:
        return None


_LOGICAL = {b"T": True, b"t": True, b"Y": True, b"y": True, b"F": False, b"f": False, b"N": False, b"n": False}


class DataFile:
    """An open data file, shared with other programs unless `exclusive`.

    Records count from 1 and are dicts of the names of fields. Texts are str, in
    `encoding` or what the file says of itself; numbers int, or Decimal where the
    field has decimals, or float of type F; dates datetime.date; logical values
    bool; memos their text. A blank field is None, a blank text "".

    Changes by others are waited for up to `wait` seconds, then LockError is raised.
    """

    def __init__(
        self,
        path: str | os.PathLike[str],
        mode: str = "r",
        *,
        dialect: int = 0,
        encoding: str | None = None,
        errors: str = "strict",
        exclusive: bool = False,
        wait: float = 10.0,
    ) -> None:
        self._handle: int | None = None
        self._memo: MemoFile | None = None
        if mode not in ("r", "r+"):
            raise ValueError("the mode is 'r' or 'r+'")
        self.path = os.fspath(path)
        header = _read_header(self.path)
        self.dialect = dialect or _choose_dialect(self.path, header)
        self.encoding = encoding or encoding_of(self.path, header.language)
        self.errors = errors
        self._wait = wait
        self._shared = not exclusive
        self._locks = 0  # guards held on the file or its header
        self._mode = (READ_ONLY if mode == "r" else 0) | (0 if exclusive else SHARED)

        handle = c_uint16()
        self._size_fits = (
            call("ZBDDOPENX", byref(handle), os.fsencode(self.path), self.dialect | self._mode) != Code.WarnFileSize
        )
        self._handle = handle.value
        if mode == "r+" and self.info.infoFlags & 1:
            self.close()
            _native.fail("ZBDDOPENX", Code.ErrReadOnly)
        self._describe()
        if any(field.type == "M" for field in self.fields):
            memo, memo_mode = _memo_place(self.path, self.dialect)
            if os.path.exists(memo):
                self._memo = MemoFile(memo, memo_mode | self._mode)

    def _describe(self) -> None:
        record = _native.RecordInfo()
        call("ZBDDRINFO", self._handle, byref(record))
        specs = (_native.FieldSpec * record.fieldCount)()
        call("ZBDDFINFO", self._handle, byref(c_uint16()), specs)
        #: The fields of a record, in their order.
        self.fields = [
            Field(spec.name.decode("ascii", "replace"), chr(spec.type), spec.width, spec.decimals if spec.type in b"NF" else 0)
            for spec in specs
        ]
        self._numbers = {field.name: number for number, field in enumerate(self.fields)}
        # The record buffer stays where it is until the file is closed, and one
        # unpacking takes all fields out of it.
        self._buffer = (c_char * record.recordLength).from_address(record.buffer)
        self._unpack = struct.Struct("c" + "".join(f"{field.width}s" for field in self.fields)).unpack_from
        self._names = tuple(self._numbers)
        self._readers = tuple(self._reader(number) for number in range(len(self.fields)))
        self._make_record = self._record_maker()

    def _reader(self, number: int) -> Callable[[bytes], Value]:
        """What makes a value of a field's bytes."""
        field = self.fields[number]
        encoding, errors = self.encoding, self.errors

        def text(value: bytes) -> Value:
            return value.rstrip(b" \0").decode(encoding, errors)

        def whole(value: bytes) -> Value:
            try:
                return int(value)
            except ValueError:
                return decimal(value)

        def decimal(value: bytes) -> Value:
            if value.isspace():
                return None
            try:
                return Decimal(value.decode("ascii"))
            except (ArithmeticError, UnicodeDecodeError):
                # What is no number as a whole is one as far as the library reads it.
                number_read = c_double()
                call("ZBDDFGET", self._handle, number, byref(number_read))
                return number_read.value

        def floating(value: bytes) -> Value:
            try:
                return float(value)
            except ValueError:
                return decimal(value)

        def memo(value: bytes) -> Value:
            block = c_uint32()
            call("ZBDDFGET", self._handle, number, byref(block))
            if not block.value or self._memo is None:
                return None if not block.value else block.value
            return self._memo.read(block.value).decode(encoding, errors)

        return {
            "C": text,
            "N": decimal if field.decimals else whole,
            "F": floating,
            "D": _date,
            "L": _LOGICAL.get,
            "M": memo,
        }[field.type]

    def _record_maker(self) -> Callable[[tuple[bytes, ...]], dict[str, Value]]:
        """A function that makes a record of its fields' bytes, written out field by field.

        It spares a scan most of its calls. What it can't make a value of, it leaves
        to the readers.
        """
        parts = []
        for number, field in enumerate(self.fields):
            value, reader = f"v[{number + 1}]", f"readers[{number}]({{}})"
            # A number stands to the right: one that ends with a blank is for the reader.
            if field.type == "C":
                # Python decodes plain letters many times faster than it does by a table.
                made = f"str(t, 'ascii') if (t := {value}.rstrip(blanks)).isascii() else str(t, encoding, errors)"
            elif field.type == "N" and field.decimals == 0:
                made = f"int({value}) if {value}[-1] != 32 else {reader.format(value)}"
            elif field.type == "N":
                made = f"Decimal(str({value}, 'ascii')) if {value}[-1] != 32 else {reader.format(value)}"
            elif field.type == "D":
                made = f"date({value})"
            elif field.type == "L":
                made = f"logical({value})"
            else:
                made = reader.format(value)
            parts.append(f"{field.name!r}: {made}")
        space = {
            "readers": self._readers,
            "blanks": b" \0",
            "encoding": self.encoding,
            "errors": self.errors,
            "Decimal": Decimal,
            "date": _date,
            "logical": _LOGICAL.get,
        }
        quick = eval(f"lambda v: {{{', '.join(parts)}}}", space)
        names, readers = self._names, self._readers

        def make(values: tuple[bytes, ...]) -> dict[str, Value]:
            try:
                return quick(values)
            except UnicodeDecodeError as failure:
                if failure.encoding != "ascii":
                    raise
            except (ValueError, ArithmeticError):
                pass
            return {name: read(value) for name, read, value in zip(names, readers, values[1:])}

        return make

    # ---- what the file is

    @property
    def info(self) -> _native.DataInfo:
        info = _native.DataInfo()
        call("ZBDDINFO", self._live(), byref(info))
        return info

    @property
    def size_fits(self) -> bool:
        """Whether the file's length was what its header said when it was opened."""
        return self._size_fits

    def _live(self) -> int:
        if self._handle is None:
            raise ValueError("the data file is closed")
        return self._handle

    def __len__(self) -> int:
        """The number of records, deleted ones included, as the file said last."""
        count = c_uint32()
        call("ZBDDSIZE", self._live(), byref(count))
        return count.value

    def refresh(self) -> None:
        """Reads the number of records anew: others may have appended."""
        call("ZBDDHGET", self._live())

    # ---- reading

    def _read(self, number: int) -> bool:
        """Reads a record into memory; True if it is live."""
        code = _native.raw("ZBDDRGET")(self._live(), number)
        if code < 0:
            _native.fail("ZBDDRGET", code)
        return code != Code.WarnDeleted

    def record(self, number: int) -> dict[str, Value]:
        """The record of a number, deleted or not."""
        self._read(number)
        return self._make_record(self._unpack(self._buffer))

    def is_deleted(self, number: int) -> bool:
        return not self._read(number)

    def records(self, deleted: bool = False) -> Iterator[tuple[int, dict[str, Value]]]:
        """Numbers and records in file order, the deleted ones only on request."""
        make, unpack, buffer = self._make_record, self._unpack, self._buffer
        get, handle = _native.raw("ZBDDRGET"), self._live()
        for number in range(1, len(self) + 1):
            code = get(handle, number)
            if code != 0:
                if code < 0:
                    _native.fail("ZBDDRGET", code)
                if not deleted:
                    continue
            yield number, make(unpack(buffer))
            if self._handle != handle or self._buffer is not buffer:
                raise RuntimeError("the data file was closed or packed during the walk")

    def __iter__(self) -> Iterator[dict[str, Value]]:
        """The live records in file order."""
        for _, record in self.records():
            yield record

    def rows(self, deleted: bool = False) -> Iterator[Any]:
        """The same as named tuples, which are smaller and are read as row.NAME."""
        Row = namedtuple("Row", self._names, rename=True)  # type: ignore[misc]
        return (Row(*record.values()) for _, record in self.records(deleted))

    def in_order(self, index: Any) -> Iterator[dict[str, Value]]:
        """The live records in the order of an index."""
        for entry in index:
            if self._read(entry.record):
                yield self._make_record(self._unpack(self._buffer))

    # ---- changing

    def append(self, values: dict[str, Value] | None = None, **more: Value) -> int:
        """Appends a record, and gives its number. Fields that aren't named stay blank."""
        record = c_uint32()
        with self._header_locked():
            call("ZBDDRCLEAR", self._live())
            self._put({**(values or {}), **more}, 0)
            call("ZBDDRPUT", self._handle, byref(record), APPEND)
        return record.value

    def update(self, number: int, values: dict[str, Value] | None = None, **more: Value) -> None:
        """Changes fields of a record, under its lock."""
        with self.lock_record(number):
            self._read(number)
            deleted = self._buffer[0]
            self._put({**(values or {}), **more}, number)
            call("ZBDDRPUT", self._handle, byref(c_uint32(number)), UPDATE)
            # Whatever is put becomes a live record.
            if deleted != b" ":
                call("ZBDDRDEL", self._handle, number)

    def delete(self, number: int) -> None:
        """Marks a record as deleted."""
        with self.lock_record(number):
            call("ZBDDRDEL", self._live(), number)

    def recall(self, number: int) -> None:
        """Takes the mark away again."""
        with self.lock_record(number):
            call("ZBDDRUNDEL", self._live(), number)

    def pack(self) -> None:
        """Removes the deleted records for good; ZBDDPACK tells the rest. Indexes are stale afterwards."""
        handle = c_int16(self._live())
        code = _native.raw("ZBDDPACK")(byref(handle))
        self._handle = handle.value if handle.value >= 0 else None
        if code < 0:
            _native.fail("ZBDDPACK", code)
        self._describe()

    def pack_memos(self) -> None:
        """Rewrites the memo file without what no live record names."""
        if self._memo is None:
            raise ValueError("the data file has no memo file")
        self._memo._pack(self._live())

    def _put(self, values: dict[str, Value], number: int) -> None:
        if not values.keys() <= self._numbers.keys():
            values = {name.upper(): value for name, value in values.items()}
        # Memos last: what is refused before them leaves no memo behind.
        for name, value in sorted(values.items(), key=lambda item: self._type(item[0]) == "M"):
            self._put_field(self._numbers[name], value)

    def _type(self, name: str) -> str:
        if name not in self._numbers:
            _native.fail("ZBDDFNAM2NO", Code.ErrFieldName)
        return self.fields[self._numbers[name]].type

    def _put_field(self, number: int, value: Value) -> None:
        field = self.fields[number]
        if value is None:
            stored = b"?" if field.type == "L" else b""
        elif field.type == "C":
            stored = str(value).encode(self.encoding)
        elif field.type == "D":
            if not isinstance(value, datetime.date):
                raise TypeError(f"{field.name} takes a date")
            stored = f"{value.year:04}{value.month:02}{value.day:02}".encode()
        elif field.type == "L":
            stored = b"T" if value else b"F"
        elif field.type == "M":
            self._put_memo(number, value)
            return
        elif isinstance(value, Decimal) and value.is_finite():
            stored = f"{value:.{field.decimals}f}".encode().rjust(field.width)
        elif (double := float(value)) < 0:  # type: ignore[arg-type]
            # The library looks at the largest number alone, and cuts a long negative one.
            stored = f"{double:.{field.decimals}f}".encode().rjust(field.width)
        else:
            call("ZBDDFPUT", self._handle, number, byref(c_double(double)))
            return
        if len(stored) > field.width:
            raise ValueError(f"{field.name} holds {field.width} bytes, not {len(stored)}")
        call("ZBDDFPUTS", self._handle, number, stored)

    def _put_memo(self, number: int, value: Value) -> None:
        block = value
        if not isinstance(value, int):
            if self._memo is None:
                raise ValueError("the data file has no memo file")
            # Always a new memo: one that is written over can't be had back when the
            # record isn't written after all.
            block = self._memo.write(str(value).encode(self.encoding))
        call("ZBDDFPUT", self._handle, number, byref(c_uint32(block)))  # type: ignore[arg-type]

    # ---- locks

    def _await(self, name: str, attempt: Callable[[], bool]) -> None:
        until = time.monotonic() + self._wait
        while not attempt():
            if time.monotonic() >= until:
                raise LockError(name, self.path)
            time.sleep(0.01)

    @contextlib.contextmanager
    def lock(self, kind: int = Lock.FILE) -> Iterator[None]:
        """Holds a lock on the file, and refreshes the number of records."""

        def attempt() -> bool:
            conflict = c_uint16()
            call("ZBDDLOCK", self._live(), kind, byref(conflict))
            return conflict.value != CONFLICT

        self._await("ZBDDLOCK", attempt)
        self._locks += 1
        try:
            yield
        finally:
            self._locks -= 1
            if self._handle is not None:
                call("ZBDDUNLOCK", self._handle, kind, byref(c_uint16()))

    @contextlib.contextmanager
    def lock_record(self, number: int) -> Iterator[None]:
        """Holds a lock on a record; none is needed while the file is locked or not shared."""
        if self._locks or not self._shared:
            yield
            return

        def attempt() -> bool:
            conflict = c_uint16()
            call("ZBDDRLOCK", self._live(), number, 7, byref(conflict))
            return conflict.value != CONFLICT

        self._await("ZBDDRLOCK", attempt)
        try:
            yield
        finally:
            if self._handle is not None:
                call("ZBDDRLOCK", self._handle, number, 6, byref(c_uint16()))

    def _header_locked(self) -> contextlib.AbstractContextManager[None]:
        if self._locks or not self._shared:
            return contextlib.nullcontext()
        return self.lock(Lock.HEADER)

    # ---- the end

    def close(self) -> None:
        if self._memo is not None:
            memo, self._memo = self._memo, None
            memo.close()
        if self._handle is not None:
            handle, self._handle = self._handle, None
            call("ZBDDCLOSE", handle)

    def __enter__(self) -> DataFile:
        return self

    def __exit__(self, *failure: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_handle", None) is not None:
            _native.quietly("ZBDDCLOSE", self._handle)
