"""The library's run: start and end, the controllers' arrival, callbacks as Python callables,
events as an iterator, and the replies of the Rsp forms."""

import atexit
import collections
import threading
import time

from . import _callbacks
from ._api import Exports, decode_reply, find_export
from ._events import EventStream, Hub
from ._model import MODEL
from .records import Event

# Every kind the library can call back, from the model.
CALLBACK_KINDS = tuple(MODEL.callback_kinds)
# What `events()` delivers unless told otherwise: everything but the replies, which wait_reply
# takes (a registered response callback empties the response queue that GetNextResponse reads).
EVENT_KINDS = tuple(k for k in CALLBACK_KINDS if k != "response")

_active_lock = threading.Lock()
_active = None


def same_mac(a, b):
    """Two MACs name the same controller: case and separators don't matter."""
    def digits(m):
        return "".join(c for c in m.upper() if c in "0123456789ABCDEF")
    return digits(a) == digits(b)


class Library(Exports):
    """The library's run, as a context manager:

        with zanth.Library(port=3001, valid=["C0:00:01"], on_event=print) as lib:
            lib.wait_connected("C0:00:01", timeout=30)
            print(lib.controller_info("C0:00:01"))

    Creating a Library loads the library (``$ZANTH_LIBRARY``, a copy beside this package, or the
    system's search path; `library=` names a path). It opens its log and message files in the
    working directory (or the per-user log folder) at that moment, so choose the directory
    first. Then the valid list is set (`valid`: MACs, or "ALL"), the callbacks are registered
    and, when `port` is given, Initialization opens the port; close() (or leaving the with
    block) calls Shutdown. The library keeps one run per process: one Library at a time.

    Callbacks are keywords ``on_<kind>`` for the kinds of the model: on_event, on_alarm,
    on_lookup, on_here_i_am, on_key_pad, on_command_key, on_post_access, on_smart_card (each
    gets the text), on_connected, on_disconnected (each gets the MAC) and on_response (gets a
    decoded Reply). They run on the library's threads; an int they return goes back to the
    library (a negative one ends the current delivery pass), anything else counts as 0. What
    one raises never reaches the library: it goes to ``on_callback_error(kind, exception)``,
    or is logged on the "zanth" logger. Each kind is registered once per process (a second
    registration would cost the library two seconds); a kind with a callback is no longer
    queued for polling.

    ``events=True`` (or a list of kinds) queues those kinds from the start for `events()`;
    otherwise the first call of events() registers them. The exports block their caller (a
    command up to its reply); from asyncio, call them in a thread:
    ``await asyncio.to_thread(lib.controller_info, mac)``. A registration outlives the Library
    (the library has no way to undo one): after close() the kinds it registered are taken by
    their callbacks and dropped, not left for polling.
    """

    def __init__(self, port=None, valid=None, *, events=False, library=None,
                 on_callback_error=None, **callbacks):
        super().__init__(library)
        handlers = {}
        for key, fn in callbacks.items():
            kind = key[3:] if key.startswith("on_") else None
            if kind not in CALLBACK_KINDS:
                raise TypeError(f"Library() got an unexpected keyword argument {key!r} (the "
                                "callbacks are " + ", ".join("on_" + k for k in CALLBACK_KINDS)
                                + ")")
            if fn is not None:
                if not callable(fn):
                    raise TypeError(f"{key} must be callable")
                handlers[kind] = fn
        self._event_kinds = self._kinds(events)
        self._port = port
        self._hub = Hub()
        self._pending = collections.OrderedDict()  # rspid -> (Rsp export, arguments)
        self._replies = {}                         # rspid -> [Reply], not yet taken
        self._reply_cond = threading.Condition()
        self._next_rspid = 1
        self._initialized = False
        self._closed = False
        global _active
        with _active_lock:
            if _active is not None:
                raise RuntimeError("the zanth library runs one Library at a time: close the "
                                   "other one first")
            _active = self
        try:
            loaded = self._dll()
            _callbacks.install(self, handlers, on_callback_error)
            if valid is not None:
                self.set_valid_controllers(valid if isinstance(valid, str) else ",".join(valid))
            for kind in set(handlers) | set(self._event_kinds):
                _callbacks.register(loaded, kind)
            if port is not None:
                self.initialization(port)
                self._initialized = True
        except BaseException:
            self._release()
            raise

    @staticmethod
    def _kinds(events):
        if not events:
            return frozenset()
        if events is True:
            return frozenset(EVENT_KINDS)
        kinds = frozenset([events] if isinstance(events, str) else events)
        unknown = kinds - set(CALLBACK_KINDS)
        if unknown:
            raise ValueError(f"no event kind {', '.join(sorted(unknown))}; the kinds are "
                             + ", ".join(CALLBACK_KINDS))
        return kinds

    # ---- Life -----------------------------------------------------------------------------

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
        return False

    @property
    def port(self):
        return self._port

    @property
    def closed(self):
        return self._closed

    def close(self):
        """Ends the run: no callback of this Library runs after this returns (those under way
        end first), Shutdown tells the controllers to terminate (about a second), and the
        event iterators end. A second call does nothing."""
        if self._closed:
            return
        try:
            _callbacks.uninstall(self)
            if self._initialized:
                self._initialized = False
                self.shutdown()
        finally:
            self._release()

    def _release(self):
        global _active
        self._closed = True
        _callbacks.uninstall(self)
        self._hub.close()
        with self._reply_cond:
            self._reply_cond.notify_all()
        with _active_lock:
            if _active is self:
                _active = None

    # ---- Controllers ----------------------------------------------------------------------

    def connected(self):
        """The MACs of the controllers that have identified themselves."""
        return [m for m in self.get_connected_controllers().split(",") if m]

    def is_connected(self, mac):
        return any(same_mac(m, mac) for m in self.connected())

    def wait_connected(self, mac, timeout=30.0):
        """Waits until controller `mac` has identified itself (checking every 20 ms). Raises
        TimeoutError naming the MAC and the port when it doesn't come within `timeout` s."""
        deadline = time.monotonic() + timeout
        while not self.is_connected(mac):
            if time.monotonic() >= deadline:
                where = f"port {self._port}" if self._port else "this host"
                raise TimeoutError(f"controller {mac} did not connect to {where} within "
                                   f"{timeout:g} s")
            time.sleep(0.02)

    # ---- Events ---------------------------------------------------------------------------

    def events(self, timeout=None, kinds=None):
        """The events, as a blocking iterator (``for e in lib.events()``) for a consumer thread
        or an asynchronous one (``async for e in lib.events()``). Each item is an Event. The
        kinds registered with ``events=`` are queued from the start; otherwise this registers
        `kinds` (by default every kind but "response") now. The iteration ends when the
        Library closes, or when nothing came for `timeout` seconds."""
        wanted = self._kinds(kinds) if kinds is not None else (
            self._event_kinds or frozenset(EVENT_KINDS))
        missing = wanted - self._event_kinds
        if missing:
            loaded = self._dll()
            self._event_kinds = self._event_kinds | missing
            for kind in missing:
                _callbacks.register(loaded, kind)
        return EventStream(self._hub, timeout)

    def _intake(self, kind, payload):
        """From a callback thread: queue the event, store a reply. Returns what the host's
        callable gets."""
        if kind == "response":
            rspid, frame = payload
            reply = self._make_reply(rspid, frame)
            with self._reply_cond:
                self._replies.setdefault(rspid, []).append(reply)
                self._reply_cond.notify_all()
            if kind in self._event_kinds:
                self._hub.put(Event(kind, frame.decode("utf-8", "surrogateescape"), reply=reply))
            return reply
        if kind in self._event_kinds:
            self._hub.put(Event(kind, payload))
        return payload

    # ---- Rsp forms and their replies --------------------------------------------------------

    _PENDING_LIMIT = 65536

    def _note_rsp(self, e, given):
        rspid = given.get("rspid")
        if isinstance(rspid, int):
            with self._reply_cond:
                self._pending[rspid] = (e, dict(given))
                self._pending.move_to_end(rspid)
                while len(self._pending) > self._PENDING_LIMIT:
                    self._pending.popitem(last=False)

    def _forget_rsp(self, given):
        with self._reply_cond:
            self._pending.pop(given.get("rspid"), None)

    def _make_reply(self, rspid, frame):
        with self._reply_cond:
            asked = self._pending.get(rspid)
        if asked is None:
            from ._api import Reply
            return Reply(rspid=rspid, frame=frame)
        e, given = asked
        args = {k: v for k, v in given.items() if k in e.by_name and k != "rspid"}
        return decode_reply(e.name, frame, rspid=rspid, **args)

    def request(self, export, *args, rspid=None, **kwargs):
        """Sends the Rsp form of `export` (the blocking form's name or the Rsp form's) with the
        blocking form's arguments, under `rspid` or a fresh one, and returns the rspid; its
        reply comes from wait_reply(rspid)."""
        e = find_export(export)
        if e.form != "rsp":
            twin = MODEL.exports.get(e.twin) if e.twin else None
            if twin is None or twin.form != "rsp":
                raise ValueError(f"{e.name} has no Rsp form")
            e = twin
        if rspid is None:
            with self._reply_cond:
                while self._next_rspid in self._pending or self._next_rspid in self._replies:
                    self._next_rspid += 1
                rspid = self._next_rspid
                self._next_rspid = self._next_rspid % (2**32 - 1) + 1
        getattr(self, e.pyname)(rspid, *args, **kwargs)
        return rspid

    def wait_reply(self, rspid, timeout=30.0):
        """The reply under `rspid`, decoded (a Reply). It comes through the response callback
        when one is registered, otherwise from the response queue (replies of other rspids are
        kept for their own wait). Raises TimeoutError when none came within `timeout` s."""
        deadline = time.monotonic() + timeout
        by_callback = "response" in _callbacks.registered()
        while True:
            with self._reply_cond:
                waiting = self._replies.get(rspid)
                if waiting:
                    reply = waiting.pop(0)
                    if not waiting:
                        del self._replies[rspid]
                    self._pending.pop(rspid, None)
                    return reply
                left = deadline - time.monotonic()
                if left <= 0 or self._closed:
                    raise TimeoutError(f"no reply under rspid {rspid} within {timeout:g} s")
                if by_callback:
                    self._reply_cond.wait(left)
                    continue
            if not self._drain_responses():
                time.sleep(min(0.005, max(left, 0)))

    def _drain_responses(self):
        """Moves what the response queue holds into the store; True when it held anything."""
        took = False
        while True:
            item = self.get_next_response()
            if item is None:
                return took
            took = True
            reply = self._make_reply(item.rspid, item.buffer)
            with self._reply_cond:
                self._replies.setdefault(item.rspid, []).append(reply)


@atexit.register
def _close_at_exit():
    # A Library left open would let the library's threads call into an interpreter that is
    # ending: close it while Python still runs.
    lib = _active
    if lib is not None:
        try:
            lib.close()
        except BaseException:
            pass
