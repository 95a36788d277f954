"""xBase data files, memos and indexes, by libzb.

    import zb

    with zb.open("people.dbf") as people:
        for row in people:
            print(row["NAME"], row["BORN"])

A failed call raises zb.Error with the library's code. Objects belong to one
thread at a time, since the library has none; nothing else has to be minded.
"""

from ._native import call as _call
from .data import DataFile, Dialect, Field, Lock, create, open
from .errors import Code, Error, LockError
from .index import Entry, Index, MdxFile, build_index, create_index
from .memo import MemoFile

__all__ = [
    "Code",
    "DataFile",
    "Dialect",
    "Entry",
    "Error",
    "Field",
    "Index",
    "Lock",
    "LockError",
    "MdxFile",
    "MemoFile",
    "build_index",
    "create",
    "create_index",
    "open",
]

_call("ZBDVERSION", 3)
