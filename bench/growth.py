#!/usr/bin/env python3
"""growth.py BUILD-FOLDER [--write] - what the library's work costs as it grows

Measures growth_bench at growing sizes, each in processes of its own, prints a table, and fails where
the cost grows faster than the work. With --write it puts table and plot into docs.
"""

import argparse
import os
import pathlib
import subprocess
import sys
import tempfile
import time

PROJECT = pathlib.Path(__file__).resolve().parent.parent
PAGE = PROJECT / "docs/SPEED.md"
PLOT = PROJECT / "docs/growth.svg"
BEGIN = "<!-- written by ./run growth -->"
END = "<!-- end -->"

# what, how the table calls it, sizes, and how often each is measured
SUBJECTS = [
    ("recipients", "recipients of a mail", [1, 10, 100, 1000], 5),
    ("body", "bytes of a body", [1, 1000, 100_000, 1_000_000, 10_000_000, 100_000_000], 3),
    ("line", "bytes of a body of one line", [1, 1000, 100_000, 10_000_000, 100_000_000], 3),
    ("short", "bytes of a body of lines of one letter", [2, 1000, 100_000, 10_000_000, 100_000_000],
     3),
    ("japanese", "bytes of a body in ISO-2022-JP", [1, 1000, 100_000, 10_000_000, 100_000_000], 3),
    ("queue", "mails waiting in the queue", [5, 50, 500], 3),
    ("start", "files found at a start", [1, 10, 100, 1000, 10_000], 3),
    ("posters", "programs, posting 30 mails each", [1, 2, 4, 8, 16], 3),
    ("mailbox", "mails in a mailbox", [1, 10, 100, 1000, 10_000], 3),
    ("read", "lines of settings, reading the last", [1, 10, 100, 1000, 10_000], 5),
    ("write", "lines of settings, writing the last", [1, 10, 100, 1000, 10_000], 5),
]

# Ten times the work may take so much more time than ten times, measured at the largest sizes; the
# rest is caches and allocations of the system.
ROOM = 1.6
# What a send of the longest body may take of memory at its peak, beside the record that is sent.
LONG_BODIES = ["body", "line", "short", "japanese"]
MOST_KILOBYTES = 2000


def on_one():
    """What a command begins with that runs on one processor, always the same."""
    return ["taskset", "-c", str(min(os.sched_getaffinity(0)))]


def measure(build, what, size, scratch):
    """Microseconds and kilobytes of one piece of work."""
    ready = scratch / "ready"
    ready.unlink(missing_ok=True)
    # All on one processor: how long another one takes to wake up changes from second to second.
    sink = subprocess.Popen([*on_one(), build / "bench/sink", ready,
                             str(size if what == "mailbox" else 0)])
    try:
        for _ in range(200):
            if ready.exists():
                break
            time.sleep(0.05)
        words = subprocess.run(
            [*on_one(), build / "bench/growth_bench", what, str(size),
             *ready.read_text().split()],
            check=True, capture_output=True, text=True, timeout=600).stdout.split()
    finally:
        sink.kill()
        sink.wait()
    return float(words[0]), int(words[1])


def measure_all(build):
    """For each subject its sizes with the least time and the least peak seen."""
    results = {}
    with tempfile.TemporaryDirectory() as folder:
        for what, _, sizes, rounds in SUBJECTS:
            points = []
            for size in sizes:
                runs = [measure(build, what, size, pathlib.Path(folder)) for _ in range(rounds)]
                points.append((size, min(r[0] for r in runs), min(r[1] for r in runs)))
            results[what] = points
            print(f"{what}: " + ", ".join(f"{n} {readable(us)}" for n, us, _ in points), flush=True)
    return results


def readable(microseconds):
    """Three digits and a unit."""
    for unit, size in (("s", 1e6), ("ms", 1e3)):
        if microseconds >= size:
            return f"{microseconds / size:.3g} {unit}"
    return f"{microseconds:.3g} us"


def faults(results):
    """What grows faster than it may."""
    for what, points in results.items():
        (small, before, _), (large, after, _) = points[-2:]
        if after / before > ROOM * large / small:
            yield (f"{what}: {large / small:.0f} times the work takes {after / before:.1f} times "
                   f"the time")
    for what in LONG_BODIES:
        size, _, kilobytes = results[what][-1]
        if kilobytes > MOST_KILOBYTES:
            yield f"{what}: {kilobytes} KB of memory for a body of {size} bytes"


def memory(results):
    """A list of it."""
    names = {what: name for what, name, _, _ in SUBJECTS}
    size = results["body"][-1][0] // 1_000_000
    lines = [f"What sending a body of {size} MB takes of memory at its peak, beside the record that "
             "is sent:", ""]
    return "\n".join(lines + [f"- {names[what]}: {results[what][-1][2]} KB" for what in LONG_BODIES])


def table(results):
    """The figures in Markdown."""
    lines = ["| what grows | how many, and the time of all |", "|---|---|"]
    for what, name, _, _ in SUBJECTS:
        cells = ", ".join(f"{size:_}: {readable(us)}".replace("_", " ")
                          for size, us, _ in results[what])
        lines.append(f"| {name} | {cells} |")
    return "\n".join([*lines, "", memory(results)])


def plot(results):
    """Time over size, drawn by gnuplot."""
    curves = []
    data = []
    for what, name, _, _ in SUBJECTS:
        curves.append(f"'-' with linespoints title '{name}'")
        data += [f"{size} {us / 1000:.4f}" for size, us, _ in results[what]] + ["e"]
    script = "\n".join([
        "set terminal svg size 720,420 font 'sans-serif,12'", f"set output '{PLOT}'",
        "set logscale xy 10", "set xlabel 'how many'", "set ylabel 'milliseconds'",
        "set format xy '10^{%L}'", "set grid", "set key outside right",
        "plot " + ", ".join(curves), *data, ""])
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--write", action="store_true")
    options = parser.parse_args()
    results = measure_all(options.build.resolve())
    found = list(faults(results))
    print(memory(results))
    if options.write:
        before, rest = PAGE.read_text().split(BEGIN)
        PAGE.write_text(f"{before}{BEGIN}\n\n{table(results)}\n\n{END}{rest.split(END)[1]}")
        plot(results)
    for fault in found:
        print(fault, file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
