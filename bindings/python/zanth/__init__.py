"""zanth: the Python face of libzanth, the host library of the door-access controllers.

    import zanth

    with zanth.Library(port=3001, valid=["C0:00:01"], on_event=print) as lib:
        lib.wait_connected("C0:00:01", timeout=30)
        print(lib.controller_info("C0:00:01"))
        card = lib.get_card_record4("C0:00:01", 7, 0, "1001", "1234")   # a CardRecord

Every export of the library is a method of `Library`, by its snake_case name, with keyword
arguments named after the header's parameters (snake_case too). The prototypes, the argument
checks, the success rules and the decoding of Rsp replies all come from the API model
(``zanth-api.json`` in this package), so nothing is written here export by export:

- a result the export's success rule calls a failure raises `ZanthError` (code, name, meaning);
  a poll that finds nothing returns None;
- arguments that don't fit the model raise `ArgumentTypeError` (a TypeError) or
  `ArgumentValueError` (a ValueError) before anything is called;
- writable texts always go to the library in buffers of their own;
- callbacks are Python callables (kept alive; what they raise is logged, never passed to the
  library's thread); `Library.events()` iterates over what the controllers send, blocking or
  with ``async for``;
- the Rsp forms' replies are decoded into what the blocking form returns
  (`Library.request`, `Library.wait_reply`, `decode_reply`).

The library is found through ``$ZANTH_LIBRARY`` (a path), then a copy beside this package
(libzanth.so, zanth.dll), then the system's search path. It is loaded lazily, when a Library is
made or the first export is called, never at import: it opens its log and message files in the
working directory (or the per-user log folder) as it loads.
"""

from ._api import Exports, Reply, decode_reply, find_export
from ._loader import find_library
from ._loader import load as _load
from ._model import MODEL
from .errors import (ArgumentTypeError, ArgumentValueError, UnknownExportError, ZanthError,
                     result_meaning, result_name)
from .library import CALLBACK_KINDS, EVENT_KINDS, Library, same_mac
from .records import CardRecord, Event

__version__ = MODEL.version

# The exports without a Library: zanth.api.get_dll_version(), loaded at the first call.
api = Exports()


def load(path=None):
    """Loads the library now (from `path`, or as find_library says) rather than at the first
    call. The working directory should be where its log and message files belong."""
    _load(path)


def call(export, *args, **kwargs):
    """Calls an export by its C or Python name without a Library: zanth.call("GetDLLVersion")."""
    return api.call(export, *args, **kwargs)


def exports():
    """The names of every export, in the header's order."""
    return list(MODEL.exports)


__all__ = [
    "Library", "Exports", "CardRecord", "Event", "Reply", "ZanthError", "ArgumentTypeError",
    "ArgumentValueError", "UnknownExportError", "decode_reply", "find_export", "find_library",
    "load", "call", "exports", "api", "result_name", "result_meaning", "same_mac",
    "CALLBACK_KINDS", "EVENT_KINDS", "MODEL",
]
