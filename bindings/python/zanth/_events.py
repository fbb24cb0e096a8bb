"""The queue between the library's callback threads and the host's consumers: a blocking
iterator for a consumer thread, and an asynchronous one for asyncio."""

import asyncio
import collections
import threading
import time


class Hub:
    """What the callbacks put in, in order; taken out by one consumer or several (each item goes
    to one of them). Unbounded: nothing the library delivered is dropped here."""

    def __init__(self):
        self._items = collections.deque()
        self._cond = threading.Condition()
        self._waiters = []  # (loop, future) of asyncio consumers waiting for an item
        self._closed = False

    def put(self, item):
        with self._cond:
            if self._closed:
                return
            self._items.append(item)
            self._cond.notify()
            self._wake()

    def close(self):
        with self._cond:
            self._closed = True
            self._cond.notify_all()
            self._wake()

    def _wake(self):
        waiters, self._waiters = self._waiters, []
        for loop, future in waiters:
            try:
                loop.call_soon_threadsafe(_settle, future)
            except RuntimeError:  # that loop is closed: its consumer is gone
                pass

    def __len__(self):
        return len(self._items)

    def get(self, timeout=None):
        """The next item; None once closed and drained, or when `timeout` passes."""
        deadline = None if timeout is None else time.monotonic() + timeout
        with self._cond:
            while not self._items:
                if self._closed:
                    return None
                left = None if deadline is None else deadline - time.monotonic()
                if left is not None and left <= 0:
                    return None
                self._cond.wait(left)
            return self._items.popleft()

    async def get_async(self, timeout=None):
        loop = asyncio.get_running_loop()
        deadline = None if timeout is None else loop.time() + timeout
        while True:
            with self._cond:
                if self._items:
                    return self._items.popleft()
                if self._closed:
                    return None
                future = loop.create_future()
                self._waiters.append((loop, future))
            try:
                left = None if deadline is None else deadline - loop.time()
                if left is not None and left <= 0:
                    return None
                await asyncio.wait_for(asyncio.shield(future), left)
            except asyncio.TimeoutError:
                return None
            finally:
                with self._cond:
                    self._waiters = [w for w in self._waiters if w[1] is not future]
                if not future.done():
                    future.cancel()


def _settle(future):
    if not future.done():
        future.set_result(None)


class EventStream:
    """The events of a Library, both ways:

        for event in lib.events(): ...            # a consumer thread: blocks for each one
        async for event in lib.events(): ...      # asyncio: awaits each one

    The iteration ends when the Library closes, or when no event came within `timeout`
    seconds (None: wait for ever)."""

    def __init__(self, hub, timeout=None):
        self._hub = hub
        self._timeout = timeout

    def __iter__(self):
        return self

    def __next__(self):
        item = self._hub.get(self._timeout)
        if item is None:
            raise StopIteration
        return item

    def __aiter__(self):
        return self

    async def __anext__(self):
        item = await self._hub.get_async(self._timeout)
        if item is None:
            raise StopAsyncIteration
        return item

    def get(self, timeout=None):
        """The next event, or None when none came within `timeout` seconds or the Library
        closed."""
        return self._hub.get(timeout)
