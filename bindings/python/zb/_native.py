"""libzb, as ctypes sees it: the functions of zb.h that the package calls."""

import atexit
import ctypes
import os
from ctypes import POINTER, Structure, c_char, c_char_p, c_double, c_int16, c_int32, c_uint8, c_uint16, c_uint32, c_void_p
from pathlib import Path

from .errors import Error


class FieldSpec(Structure):
    _fields_ = [("name", c_char * 12), ("type", c_uint16), ("width", c_uint16), ("decimals", c_uint16)]


class DataInfo(Structure):
    _pack_ = 1
    _fields_ = [
        ("lockOffset", c_uint32),
        ("lockLength", c_uint32),
        ("infoFlags", c_uint16),
        ("name", c_char * 261),
        ("dialect", c_uint16),
        ("hasMemo", c_uint16),
        ("production", c_int16),
        ("transaction", c_int16),
        ("encryption", c_int16),
        ("reservedFlag", c_int16),
    ]


class RecordInfo(Structure):
    _fields_ = [("recordLength", c_uint16), ("fieldCount", c_uint16), ("buffer", c_void_p)]


class NdxInfo(Structure):
    _pack_ = 1
    _fields_ = [
        ("fileName", c_char * 261),
        ("accessFlags", c_uint16),
        ("keyLength", c_uint16),
        ("keyType", c_uint16),
        ("keyFlags", c_uint16),
        ("reportedFlag", c_int16),
        ("expressionLength", c_uint16),
        ("expression", c_char * 100),
    ]


class NtxInfo(Structure):  # and of IDX files
    _pack_ = 1
    _fields_ = [
        ("fileName", c_char * 261),
        ("accessFlags", c_uint16),
        ("keyLength", c_uint16),
        ("keyType", c_uint16),
        ("keyFlags", c_uint16),
        ("decimals", c_uint16),
        ("reportedFlag", c_int16),
        ("expressionLength", c_uint16),
        ("expression", c_char * 100),
    ]


class MdxInfo(Structure):
    _pack_ = 1
    _fields_ = [("tagCount", c_uint16), ("flags", c_uint16), ("path", c_char * 261), ("reported", c_int16)]


class TagInfo(Structure):
    _pack_ = 1
    _fields_ = [
        ("name", c_char * 10),
        ("zero", c_uint16),
        ("keyLength", c_int16),
        ("keyType", c_int16),
        ("options", c_uint16),
        ("expressionLength", c_uint16),
        ("expression", c_char * 100),
    ]


class EvalResult(Structure):
    _fields_ = [("value", c_void_p), ("type", c_int16), ("length", c_int16)]


# A letter for each kind of argument.
_KINDS = {
    "h": c_int16,
    "H": c_uint16,
    "i": c_int32,
    "I": c_uint32,
    "b": c_uint8,
    "d": c_double,
    "s": c_char_p,
    "p": c_void_p,
    "*h": POINTER(c_int16),
    "*H": POINTER(c_uint16),
    "*i": POINTER(c_int32),
    "*I": POINTER(c_uint32),
    "*d": POINTER(c_double),
    "*p": POINTER(c_void_p),
    "*field": POINTER(FieldSpec),
    "*data": POINTER(DataInfo),
    "*record": POINTER(RecordInfo),
    "*ndx": POINTER(NdxInfo),
    "*ntx": POINTER(NtxInfo),
    "*mdx": POINTER(MdxInfo),
    "*tag": POINTER(TagInfo),
    "*eval": POINTER(EvalResult),
}

_CALLS = """
ZBDINIT h b
ZBDTERM
ZBDVERSION H
ZBESCODE h
ZBMFREE p
ZBDDOPENX *H s H
ZBDDCLOSE h
ZBDDHGET h
ZBDDSIZE h *I
ZBDDINFO h *data
ZBDDCREATE s h *field h
ZBDDPACK *h
ZBDDRGET h i
ZBDDRPUT h *I H
ZBDDRDEL h i
ZBDDRUNDEL h i
ZBDDRCLEAR h
ZBDDRINFO h *record
ZBDDFGET h h p
ZBDDFPUT h h p
ZBDDFPUTS h h s
ZBDDFINFO h *H *field
ZBDDLOCK h h *H
ZBDDUNLOCK h h *H
ZBDDRLOCK h I h *H
ZBDXEVAL h p *eval
ZBDTCREATEX s h h
ZBDTOPENX *h s H
ZBDTCLOSE h
ZBDTRGET h i *p h
ZBDTRPUT h *i s H
ZBDTPACK h *h
ZBDWCREATE s h
ZBDWOPENX *h s H
ZBDWCLOSE h
ZBDWRGET h i *p
ZBDWRPUT h *i s h
ZBDWPACK h *h
ZBDNCREATE s h p h
ZBDNINDEX h s h p h
ZBDNINFO h *ndx
ZBDNKNUM p d
ZBDNKDATE p s h
ZBDCCREATE s h p h h
ZBDCINDEX h s h p h h
ZBDCINFO h *ntx
ZBDCKNUM h p d
ZBDCKDATE p s h
ZBDICREATE s H p h
ZBDIINDEX h s H p h
ZBDIINFO h *ntx
ZBDIKTYPE h h
ZBDIKNUM p d
ZBDIKDATE p s h
ZBDMCREATEX s h H
ZBDMOPENX *h s H
ZBDMCLOSE h
ZBDMINFO h *mdx
ZBDMTNEW h s I p i
ZBDMTINDEX h H s I p i
ZBDMTERASE h s
ZBDMTUSE *i H s
ZBDMTUSEX *i H h
ZBDMTCLOSE i
ZBDMTINFO i *tag
ZBDMTEXPR i p
ZBDMKNUM p d
ZBDMKDATE p s h
"""
# What the families have in common, with a tag's handle of 32 bits.
for _family, _handle in (("N", "h"), ("C", "h"), ("I", "h"), ("M", "i")):
    if _family != "M":
        _CALLS += f"ZBD{_family}OPENX *H s H\nZBD{_family}CLOSE h\nZBD{_family}EXPR h p\n"
    for _name, _arguments in (
        ("KTOP", "p *I"),
        ("KBOT", "p *I"),
        ("KNEXT", "p *I"),
        ("KPREV", "p *I"),
        ("KCUR", "p *I"),
        ("KFIND", "p *I h"),
        ("KADD", "p I"),
        ("KDEL", "p I"),
    ):
        _CALLS += f"ZBD{_family}{_name} {_handle} {_arguments}\n"
    _CALLS += f"ZBD{_family}KMAKE h {_handle} *p\n"


def _load():
    """libzb of the environment's choice, of the checkout that holds this package, or of the system."""
    checkout = Path(__file__).resolve().parents[3]
    names = [os.environ.get("ZB_LIBRARY"), checkout / "build" / "release" / "libzb.so.1", "libzb.so.1"]
    for name in names:
        if name and (not isinstance(name, Path) or name.exists()):
            # The calls keep Python's lock: there are no threads in the library, and
            # to let go of it would take longer than most calls do.
            return ctypes.PyDLL(str(name))
    raise OSError("libzb.so.1 not found")


_library = _load()
_raw = {}
for _line in _CALLS.split("\n"):
    if _line:
        _name, *_arguments = _line.split()
        _function = getattr(_library, _name)
        _function.argtypes = [_KINDS[_kind] for _kind in _arguments]
        _function.restype = c_int32
        _raw[_name] = _function


def raw(name):
    """A function as it is, for those who look at its code themselves."""
    return _raw[name]


def fail(name, code):
    """Clears the failure in the library and raises it."""
    _raw["ZBESCODE"](0)
    raise Error(code, name)


def call(name, *arguments):
    """Calls a function; a failure is raised, 0 or a warning returned."""
    code = _raw[name](*arguments)
    if code < 0:
        fail(name, code)
    return code


def quietly(name, *arguments):
    """Calls a function and drops its failure: for what is done while something else is failing."""
    if _raw[name](*arguments) < 0:
        _raw["ZBESCODE"](0)


def text_of(address):
    """The zero-terminated bytes in a memory block, which is freed."""
    value = ctypes.string_at(address)
    _raw["ZBMFREE"](address)
    return value


call("ZBDINIT", 100, 0)
atexit.register(_raw["ZBDTERM"])
