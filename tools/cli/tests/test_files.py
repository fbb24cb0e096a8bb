"""zanth file put and get: byte for byte, chunk boundaries, and a file the controller lacks."""
import os

from conftest import write


def test_put_and_get_byte_for_byte(site):
    sim = site.sim()
    port = ["--port", str(sim.port)]
    sizes = [0, 1, 4086, 4087, 50000]
    for size in sizes:
        data = os.urandom(size)
        local = site.path(f"out-{size}.bin")
        with open(local, "wb") as f:
            f.write(data)
        r = site.zanth(*port, "--json", "file", "put", "00:00:01", f"out-{size}.bin", f"/data/f{size}")
        assert r.rc == 0, r
        [put] = r.json()
        assert (put["bytes"], put["size"], put["complete"]) == (size, size, True), put
        assert put["chunks"] == max(1, -(-size // 4086)), put
        assert "put:" in r.err  # the progress line
        r = site.zanth(*port, "file", "get", "00:00:01", f"back-{size}.bin", f"/data/f{size}")
        assert r.rc == 0 and f": {size} bytes in" in r.out, r
        with open(site.path(f"back-{size}.bin"), "rb") as f:
            assert f.read() == data, size
    # What went to the controller: one opening per file, then its chunks, the last marked.
    commands = sim.commands()
    assert commands.get(30) == len(sizes) and commands.get(32) == len(sizes), commands
    assert commands.get(31) == sum(max(0, -(-s // 4086) - 1) for s in sizes), commands


def test_a_file_the_controller_lacks_leaves_the_local_file_alone(site):
    sim = site.sim()
    port = ["--port", str(sim.port)]
    keep = write(site.path("keep.bin"), "what was here before")
    r = site.zanth(*port, "file", "get", "00:00:01", "keep.bin", "/no/such/file")
    assert r.rc == 1, r
    assert "the controller gave up" in r.err and "-101" in r.err and "was not written" in r.err, r
    with open(keep) as f:
        assert f.read() == "what was here before"
    assert not os.path.exists(keep + ".part")
    r = site.zanth(*port, "file", "put", "00:00:01", "missing.bin", "/x")
    assert r.rc == 1 and "can't read" in r.err and "missing.bin" in r.err, r
