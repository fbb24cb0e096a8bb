"""Callbacks as Python callables and the event iterators, against a simulated controller that
sends an event every 100 ms. The library's callback threads deliver about once a second."""

import asyncio
import gc
import logging
import threading
import time

import zanth

from conftest import wait_until

EVENTS = ("--event-interval-ms", "100")


def message_ids(events):
    return [int(e.fields[1]) for e in events if e.kind == "event"]


def test_callbacks_are_kept_alive(site):
    seen = []

    def make():
        # The only reference to this closure is the one the Library keeps.
        return lambda text: seen.append(text)
    lib = site("C0:00:11", *EVENTS, on_event=make(), on_connected=make())
    gc.collect()
    assert wait_until(lambda: len(seen) >= 4, timeout=15), seen
    assert "C0:00:11" in seen                                 # the connect: its MAC
    assert any(t.startswith("C0:00:11;") for t in seen)      # events name their controller
    assert lib.controller_info("C0:00:11")


def test_an_exception_in_a_callback_is_logged_and_harms_nothing(site, caplog):
    calls = []

    def broken(text):
        calls.append(text)
        raise ValueError(f"boom {len(calls)}")
    caplog.set_level(logging.ERROR, logger="zanth")
    lib = site("C0:00:12", *EVENTS, on_event=broken)
    # The library goes on delivering after each exception, in later passes too.
    assert wait_until(lambda: len(calls) >= 12, timeout=20), len(calls)
    ids = [int(t.split(";")[1]) for t in calls]
    assert ids == list(range(ids[0], ids[0] + len(ids)))     # none lost to the exceptions
    logged = [r for r in caplog.records if r.name == "zanth" and "boom" in r.getMessage()]
    assert logged and logged[0].exc_info[0] is ValueError
    assert "event" in logged[0].getMessage()
    assert "C0:00:12" in lib.controller_info("C0:00:12")     # and the library still answers


def test_callback_errors_go_to_the_hook(site):
    errors = []
    returned = []

    def hook(kind, error):
        errors.append((kind, error))
        raise RuntimeError("the hook fails too")              # logged, nothing more

    def replaced(text):
        returned.append(text)
        return 0
    lib = site("C0:00:13", *EVENTS, on_event=lambda t: 1 / 0, on_callback_error=hook)
    assert wait_until(lambda: len(errors) >= 2, timeout=15)
    assert errors[0][0] == "event" and isinstance(errors[0][1], ZeroDivisionError)
    # The export that registers the callback takes a callable: the handler changes at once.
    assert lib.set_event_callback(replaced) == 0
    assert wait_until(lambda: len(returned) >= 2, timeout=15)


def test_blocking_iterator_in_a_consumer_thread(site):
    lib = site("C0:00:14", *EVENTS, events=True)
    got = []
    done = threading.Event()

    def consume():
        for event in lib.events():                            # ends when the Library closes
            got.append(event)
        done.set()
    consumer = threading.Thread(target=consume)
    consumer.start()
    try:
        assert wait_until(lambda: len(message_ids(got)) >= 12, timeout=20), got
    finally:
        lib.close()
        consumer.join(10)
    assert done.is_set() and not consumer.is_alive()
    assert got[0].kind == "connected" and got[0].mac == "C0:00:14"
    ids = message_ids(got)
    assert ids == list(range(ids[0], ids[0] + len(ids)))     # in order, none lost
    assert all(e.mac == "C0:00:14" for e in got)


def test_events_registered_on_first_use_and_iteration_timeout(site):
    lib = site("C0:00:15", *EVENTS)
    first = next(lib.events(timeout=10, kinds=["event"]))     # registers the kind now
    assert first.kind == "event" and first.mac == "C0:00:15"
    lib.sim.stop()
    # A stream ends once nothing came for its timeout: here what was still queued, then none.
    start = time.monotonic()
    rest = list(lib.events(timeout=1.5))
    assert time.monotonic() - start >= 1.5
    assert [e.kind for e in rest] == ["event"] * len(rest)
    ids = message_ids([first] + rest)
    assert ids == list(range(ids[0], ids[0] + len(ids)))


def test_async_iteration(site):
    lib = site("C0:00:16", *EVENTS, events=["event", "connected"])

    async def main():
        ticks = 0

        async def ticker():
            nonlocal ticks
            while True:
                await asyncio.sleep(0.01)
                ticks += 1
        beat = asyncio.create_task(ticker())
        got = []
        # A blocking call runs in a thread of its own while the loop awaits events.
        info = asyncio.create_task(asyncio.to_thread(lib.controller_info, "C0:00:16"))
        async for event in lib.events(timeout=10):
            got.append(event)
            if len(message_ids(got)) >= 8:
                break
        beat.cancel()
        return got, await info, ticks
    got, info, ticks = asyncio.run(main())
    assert "C0:00:16" in info
    ids = message_ids(got)
    assert len(ids) >= 8 and ids == list(range(ids[0], ids[0] + len(ids)))
    assert ticks > 10                                          # the loop was never blocked


def test_async_iteration_ends_when_the_library_closes(site):
    lib = site("C0:00:17", events=True)

    async def main():
        loop = asyncio.get_running_loop()

        async def drain():
            return [e async for e in lib.events()]
        task = asyncio.create_task(drain())
        await asyncio.sleep(0)                                # the iterator is waiting
        await loop.run_in_executor(None, lib.close)
        return await asyncio.wait_for(task, 10)
    got = asyncio.run(main())
    assert all(isinstance(e, zanth.Event) for e in got)
