#!/usr/bin/python3
"""What the Python layer costs per call: two local exports (GetDLLVersion,
GetConnectedControllers) through the package, through their bare ctypes prototypes, and from C
(zanth-bench-c-calls), p50 and p99 of calls timed one by one and the mean of a batch, in
microseconds. A controller's round trip (47 to 94 ms by the Worker's pace) would hide all of this,
so only local exports are measured.

    bench_calls.py [--calls 200000] [--library PATH] [--c-program PATH] [--dir D] [--keep]

Run it on a Release build, on an otherwise quiet machine. It prints figures; it asserts nothing.
Exit status: 0 when it ran, 1 when something didn't (a call failed, the C program is missing),
2 for a bad command line.
"""

import argparse
import ctypes
import os
import platform
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
PACKAGE_ROOT = HERE.parent
SOURCE_ROOT = PACKAGE_ROOT.parent.parent


def machine_line():
    cpu = "unknown CPU"
    try:
        for line in Path("/proc/cpuinfo").read_text().splitlines():
            if line.startswith("model name"):
                cpu = line.split(":", 1)[1].strip()
                break
    except OSError:
        pass
    return (f"{os.cpu_count()} cores, {cpu}, {platform.system()} {platform.release()}, "
            f"Python {platform.python_version()} ({sys.executable})")


def measure(call, calls):
    """(p50, p99, batch mean, timer) in ns: each call timed alone, then a batch as a whole."""
    clock = time.perf_counter_ns
    for _ in range(calls // 10):
        call()
    samples = [0] * calls
    for i in range(calls):
        start = clock()
        call()
        samples[i] = clock() - start
    start = clock()
    for _ in range(calls):
        call()
    mean = (clock() - start) / calls
    start = clock()
    for _ in range(calls):
        clock()
    timer = (clock() - start) / calls
    samples.sort()
    return samples[calls // 2], samples[calls * 99 // 100], mean, timer


def run_c(program, calls, where):
    done = subprocess.run([str(program), str(calls)], cwd=where, capture_output=True, text=True,
                          timeout=600, env=dict(os.environ, HOME=str(where)))
    if done.returncode != 0:
        raise RuntimeError(f"{program} failed: {done.stderr.strip()}")
    rows = {}
    for line in done.stdout.splitlines():
        name, p50, p99, mean, timer = line.split()
        rows[name] = (float(p50), float(p99), float(mean), float(timer))
    return rows


def default_c_program():
    for tree in ("build/bindings", "build/release", "build-bench"):
        candidate = SOURCE_ROOT / tree / "bin" / "zanth-bench-c-calls"
        if candidate.exists():
            return candidate
    found = shutil.which("zanth-bench-c-calls")
    return Path(found) if found else None


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--calls", type=int, default=200000, help="calls per measurement")
    parser.add_argument("--library", help="the library (default: as the package finds it)")
    parser.add_argument("--c-program", type=Path, default=None,
                        help="zanth-bench-c-calls (default: build/bindings, build/release "
                             "or build-bench)")
    parser.add_argument("--dir", type=Path, help="scratch folder (default: a fresh one)")
    parser.add_argument("--keep", action="store_true", help="keep the scratch folder")
    args = parser.parse_args(argv)
    if args.calls < 100:
        parser.error("--calls must be at least 100")
    program = args.c_program or default_c_program()
    if args.library:
        args.library = os.path.abspath(args.library)  # the run moves to a scratch folder
    if program is None or not program.exists():
        print("bench_calls: zanth-bench-c-calls not found (build the bindings tree, or give "
              "--c-program)", file=sys.stderr)
        return 1
    program = program.resolve()

    scratch = args.dir or Path(tempfile.mkdtemp(prefix="zanth-bench-py-"))
    scratch.mkdir(parents=True, exist_ok=True)
    (scratch / "c").mkdir(exist_ok=True)
    try:
        print(f"machine: {machine_line()}")
        print(f"calls per figure: {args.calls:,}; scratch folder {scratch}\n")
        print("C ...", end="", flush=True)
        c = run_c(program, args.calls, scratch / "c")
        print(" done")

        # The library writes its files into the working folder as it loads: move there first.
        os.chdir(scratch)
        os.environ["HOME"] = str(scratch)
        sys.path.insert(0, str(PACKAGE_ROOT))
        import zanth
        from zanth import _loader
        zanth.load(args.library)
        lib = zanth.Library()
        functions = _loader.loaded().functions
        version_buffer = ctypes.create_string_buffer(65)
        list_buffer = ctypes.create_string_buffer(65537)
        version = functions["GetDLLVersion"]
        connected = functions["GetConnectedControllers"]
        cases = [
            ("GetDLLVersion", "lib.get_dll_version()", lib.get_dll_version),
            ("GetDLLVersion", "ctypes prototype alone", lambda: version(version_buffer, 64)),
            ("GetConnectedControllers", "lib.get_connected_controllers()",
             lib.get_connected_controllers),
            ("GetConnectedControllers", "  ... size=256",
             lambda: lib.get_connected_controllers(size=256)),
            ("GetConnectedControllers", "ctypes prototype alone",
             lambda: connected(list_buffer, 65536)),
        ]
        rows = []
        for name, how, call in cases:
            print(f"Python {name}: {how.strip()} ...", end="", flush=True)
            rows.append((name, how, measure(call, args.calls)))
            print(" done")
        lib.close()

        print()
        header = f"{'export':<25} {'called as':<34} {'p50 us':>8} {'p99 us':>8} " \
                 f"{'mean us':>8} {'x C':>6}"
        print(header)
        print("-" * len(header))
        py_timer = rows[0][2][3]
        for name in ("GetDLLVersion", "GetConnectedControllers"):
            p50, p99, mean, c_timer = c[name]
            print(f"{name:<25} {'C, the same call':<34} {p50 / 1e3:8.3f} {p99 / 1e3:8.3f} "
                  f"{mean / 1e3:8.3f} {1:6.1f}")
            for row_name, how, (q50, q99, qmean, _) in rows:
                if row_name == name:
                    print(f"{'':<25} {how:<34} {q50 / 1e3:8.3f} {q99 / 1e3:8.3f} "
                          f"{qmean / 1e3:8.3f} {qmean / mean:6.1f}")
        print()
        layer = [r for r in rows if r[1].startswith("lib.")]
        extra = statistics.mean(r[2][2] for r in layer) / 1e3
        print(f"Timing one call adds {c_timer:.0f} ns in C and {py_timer:.0f} ns in Python (in "
              "p50/p99, not in the batch means).")
        print("Buffers: the package gives every output a fresh zeroed buffer of the model's "
              "default size (65 B for the version, 64 KiB for the controller list); the C "
              "program reuses one static buffer.")
        print(f"summary: one local export costs {extra:.2f} us through the Python layer on "
              f"average, against {statistics.mean(v[2] for v in c.values()) / 1e3:.3f} us "
              "from C.")
        return 0
    except (RuntimeError, OSError, zanth_error()) as e:
        print(f"\nbench_calls: {e}", file=sys.stderr)
        return 1
    finally:
        if not args.keep and args.dir is None:
            os.chdir("/")
            shutil.rmtree(scratch, ignore_errors=True)


def zanth_error():
    zanth = sys.modules.get("zanth")
    return zanth.ZanthError if zanth else RuntimeError


if __name__ == "__main__":
    sys.exit(main())
