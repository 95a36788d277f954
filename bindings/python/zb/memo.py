"""Memo files: .DBT and .FPT."""

from __future__ import annotations

import os
from ctypes import byref, c_int16, c_int32, c_void_p

from . import _native
from ._native import call

NEW, REPLACE = 0, 0x100


class MemoFile:
    """An open memo file. Texts pass as bytes; a data file converts its own."""

    def __init__(self, path: str | os.PathLike[str], mode: int = 0) -> None:
        self.path = os.fspath(path)
        self._letter = "W" if self.path[-4:].upper() == ".FPT" else "T"
        handle = c_int16()
        call(f"ZBD{self._letter}OPENX", byref(handle), os.fsencode(self.path), mode)
        self._handle = handle.value

    @staticmethod
    def create(path: str | os.PathLike[str], dialect: int = 1, block: int = 1) -> None:
        """Creates an empty file; `block` is as ZBDTCREATEX and ZBDWCREATE take it."""
        name = os.fsencode(path)
        if name[-4:].upper() == b".FPT":
            call("ZBDWCREATE", name, block)
        else:
            call("ZBDTCREATEX", name, block, dialect)

    def read(self, block: int) -> bytes:
        text = c_void_p()
        if self._letter == "T":
            call("ZBDTRGET", self._handle, block, byref(text), 0)
        else:
            call("ZBDWRGET", self._handle, block, byref(text))
        return _native.text_of(text.value)

    def write(self, text: bytes, at: int = 0) -> int:
        """Writes a new memo, or one in place of that at a block, and gives the block that it has."""
        if b"\0" in text:
            raise ValueError("a memo can't hold a zero byte")
        block = c_int32(at)
        call(f"ZBD{self._letter}RPUT", self._handle, byref(block), text, REPLACE if at else NEW)
        return block.value

    def close(self) -> None:
        if self._handle is not None:
            handle, self._handle = self._handle, None
            call(f"ZBD{self._letter}CLOSE", handle)

    def _pack(self, data: int) -> None:
        handle = c_int16(self._handle)
        code = _native.raw(f"ZBD{self._letter}PACK")(data, byref(handle))
        self._handle = handle.value if handle.value >= 0 else None
        if code < 0:
            _native.fail(f"ZBD{self._letter}PACK", code)

    def __enter__(self) -> MemoFile:
        return self

    def __exit__(self, *failure: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_handle", None) is not None:
            _native.quietly(f"ZBD{self._letter}CLOSE", self._handle)
