"""The library's callbacks, reached from its own threads.

The C callbacks carry no user pointer, and registering one again costs the library two seconds,
so each kind gets one trampoline per process, registered once and kept alive for the process's
life (a library thread may call it as long as the process runs). The trampoline hands what came
to the open Library (its event queue and reply store) and to the host's callable for that kind.
Nothing a host callable raises reaches the library's thread: it is reported to the Library's
`on_callback_error`, or logged on the "zanth" logger, and the library goes on.
"""

import ctypes
import logging
import threading

from ._loader import CALLBACK_TYPES, ZanthResponse
from ._model import MODEL
from ._reply import frame_length

log = logging.getLogger("zanth")

_INT32_MIN, _INT32_MAX = -(2**31), 2**31 - 1

_lock = threading.Lock()
_idle = threading.Condition(_lock)
_running = 0
_inside = threading.local()  # set while this thread runs a host callable
_handlers = {}               # kind -> the host's callable
_sink = None                 # the open Library, or None
_error_hook = None           # the Library's on_callback_error, or None
_trampolines = {}            # kind -> the ctypes function the library holds (never freed)
_registered = set()


def _report(kind, error):
    hook = _error_hook
    try:
        if hook is not None:
            hook(kind, error)
            return
    except BaseException as e:  # the hook itself failed: logged below with the first error
        log.error("the on_callback_error hook raised %r", e)
    log.error("the %s callback raised %s: %s", kind, type(error).__name__, error,
              exc_info=(type(error), error, error.__traceback__))


def _deliver(kind, payload):
    """Runs on a library thread. Returns what the library gets back."""
    global _running
    with _lock:
        _running += 1
        sink = _sink
        handler = _handlers.get(kind)
    _inside.active = True
    try:
        value = payload
        if sink is not None:
            try:
                value = sink._intake(kind, payload)
            except BaseException as e:
                _report(kind, e)
        if handler is None:
            return 0
        try:
            back = handler(value)
        except BaseException as e:
            _report(kind, e)
            return 0
        if isinstance(back, int) and not isinstance(back, bool):
            return max(_INT32_MIN, min(_INT32_MAX, back))
        return 0
    finally:
        _inside.active = False
        with _lock:
            _running -= 1
            if _running == 0:
                _idle.notify_all()


def _text_trampoline(kind, padded):
    def trampoline(text):
        try:
            if text is None:
                return 0
            s = text.decode("utf-8", "surrogateescape")
            if padded:
                s = s.rstrip(" ")
            return _deliver(kind, s)
        except BaseException:  # never into the library's thread
            log.exception("the %s trampoline failed", kind)
            return 0
    return trampoline


def _response_trampoline(kind):
    def trampoline(response):
        try:
            if not response:
                return 0
            r = response.contents
            # Read as bytes at its place: a char array member would come back cut at a NUL.
            text = ZanthResponse.text
            raw = ctypes.string_at(ctypes.addressof(r) + text.offset, text.size)
            return _deliver(kind, (int(r.rspid), raw[:frame_length(raw)]))
        except BaseException:
            log.exception("the response trampoline failed")
            return 0
    return trampoline


def trampoline(kind):
    """The C function of a callback kind, made once and kept for the process's life."""
    with _lock:
        if kind not in _trampolines:
            e, p = MODEL.callback_kinds[kind]
            shape = CALLBACK_TYPES[p.callback["shape"]]
            if p.callback["shape"] == "ZanthResponseCallback":
                body = _response_trampoline(kind)
            else:
                body = _text_trampoline(kind, p.callback.get("padded", False))
            _trampolines[kind] = shape(body)
        return _trampolines[kind]


def register(loaded, kind):
    """Registers the trampoline of `kind` with the library, once per process."""
    from ._call import invoke
    if kind in _registered:
        return 0
    e, p = MODEL.callback_kinds[kind]
    invoke(loaded, e, {p.name: trampoline(kind)})
    _registered.add(kind)
    return 0


def set_handler(loaded, kind, handler):
    """The host's callable for `kind` (None: none), its trampoline registered if not yet."""
    with _lock:
        if handler is None:
            _handlers.pop(kind, None)
        else:
            _handlers[kind] = handler
    if handler is not None:
        register(loaded, kind)
    return 0


def install(sink, handlers, error_hook):
    """Makes `sink` (a Library) the receiver of every callback, with its callables."""
    global _sink, _error_hook
    with _lock:
        _sink = sink
        _error_hook = error_hook
        _handlers.clear()
        _handlers.update(handlers)


def uninstall(sink):
    """No host callable runs after this returns, and those under way have ended (unless this
    thread is one of them)."""
    global _sink, _error_hook
    with _lock:
        if _sink is sink:
            _sink = None
            _error_hook = None
            _handlers.clear()
        if not getattr(_inside, "active", False):
            _idle.wait_for(lambda: _running == 0)


def registered():
    return frozenset(_registered)
