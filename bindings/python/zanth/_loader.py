"""Finding and loading the library, and giving every export its prototype from the model.

The library opens its log file ZanthMessages.log and the message files in the working directory
(or the per-user log folder) the moment it is loaded, so nothing here runs at import: `load` is
called when a Library is made or the first export is called.
"""

import ctypes
import ctypes.util
import os
import re
import sys
import threading
from pathlib import Path

from ._model import MODEL

if sys.platform == "win32":
    LIBRARY_NAMES = ("zanth.dll",)
elif sys.platform == "darwin":
    LIBRARY_NAMES = ("libzanth.dylib",)
else:
    LIBRARY_NAMES = ("libzanth.so", "libzanth.so.2")

# The C types the header uses for values and pointers to values.
_VALUES = {
    "int32_t": ctypes.c_int32,
    "uint32_t": ctypes.c_uint32,
    "uint16_t": ctypes.c_uint16,
    "uint64_t": ctypes.c_uint64,
    "char": ctypes.c_char,
}


def _response_struct():
    """ZanthResponse, laid out from its definition in the model."""
    definition = MODEL.types["ZanthResponse"]["definition"]
    fields = []
    for ctype, name, count in re.findall(r"(\w+)\s+(\w+)(?:\[(\d+)\])?;", definition):
        t = _VALUES[ctype]
        fields.append((name, t * int(count) if count else t))
    return type("ZanthResponse", (ctypes.Structure,), {"_fields_": fields})


ZanthResponse = _response_struct()


def _ctype(text):
    """The ctypes type of a C type as the model writes it."""
    text = text.strip()
    if text in _VALUES:
        return _VALUES[text]
    if text in ("char*", "const char*"):
        # A char* gets a buffer of its own (ctypes passes a char array as a char*).
        return ctypes.c_char_p
    if text == "void*":
        return ctypes.c_void_p
    if text == "ZanthResponse*":
        return ctypes.POINTER(ZanthResponse)
    if text.endswith("*") and text[:-1] in _VALUES:
        return ctypes.POINTER(_VALUES[text[:-1]])
    if text in CALLBACK_TYPES:
        return CALLBACK_TYPES[text]
    raise TypeError(f"the API model names a C type this package doesn't know: {text}")


def _callback_types():
    # Every callback returns int32_t; its parameters are in the model.
    shapes = {}
    for name, spec in MODEL.types.items():
        if "params" in spec:
            shapes[name] = None
    for name in shapes:
        params = MODEL.types[name]["params"]
        args = []
        for p in params:
            # A callback's text arrives as bytes, copied while the call lasts.
            args.append(ctypes.c_char_p if p["ctype"] == "char*" else _ctype(p["ctype"]))
        shapes[name] = ctypes.CFUNCTYPE(ctypes.c_int32, *args)
    return shapes


CALLBACK_TYPES = {}
CALLBACK_TYPES.update(_callback_types())

_lock = threading.Lock()
_loaded = None


def find_library():
    """Where the library is taken from: $ZANTH_LIBRARY, else a copy beside this package, else
    the system's search path (LD_LIBRARY_PATH, the linker cache; PATH on Windows)."""
    explicit = os.environ.get("ZANTH_LIBRARY")
    if explicit:
        return explicit
    here = Path(__file__).resolve().parent
    for name in LIBRARY_NAMES:
        if (here / name).exists():
            return str(here / name)
    found = ctypes.util.find_library("zanth")
    return found or LIBRARY_NAMES[0]


class Loaded:
    """The loaded library: one ctypes function per export, with the model's prototype."""

    def __init__(self, path):
        self.path = path
        try:
            self.dll = ctypes.CDLL(path)
        except OSError as e:
            raise OSError(f"can't load the zanth library from {path!r} ({e}); set ZANTH_LIBRARY "
                          "to its path, put it beside the zanth package, or on the system's "
                          "library path") from None
        self.functions = {}
        for e in MODEL.exports.values():
            try:
                f = getattr(self.dll, e.name)
            except AttributeError:
                raise OSError(f"{path} lacks the export {e.name}: it is not the library this "
                              f"package was made for ({MODEL.version})") from None
            f.argtypes = [_ctype(p.ctype) for p in e.params]
            f.restype = ctypes.c_int32
            self.functions[e.name] = f


def load(path=None):
    """Loads the library once per process (later calls return the same) and gives every export
    its prototype. `path` overrides the search of `find_library`."""
    global _loaded
    with _lock:
        if _loaded is None:
            _loaded = Loaded(path or find_library())
        elif path is not None and os.path.abspath(path) != os.path.abspath(_loaded.path):
            raise RuntimeError(f"the zanth library is already loaded from {_loaded.path}")
        return _loaded


def loaded():
    """The loaded library, or None before the first load."""
    return _loaded
