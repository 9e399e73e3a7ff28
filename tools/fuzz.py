#!/usr/bin/env python3
"""Runs all fuzz targets, as many at once as there are processors.

use: fuzz.py BUILD-FOLDER SECONDS [SEED]

Each target starts from its corpus in fuzz/corpus and from what earlier runs added in BUILD-FOLDER.
An input that breaks a rule is kept in BUILD-FOLDER/found, and printed if it is short. Without a
SEED there is a new one each time, which is printed.
"""

import concurrent.futures
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
MEMORY = pathlib.Path("/dev/shm")

LIMITS = ["-max_len=8192", "-timeout=10", "-rss_limit_mb=1024", "-detect_leaks=1"]


def environment(folder):
    """Scratch files in folder; few freed blocks are kept for the address sanitizer."""
    return dict(os.environ, TMPDIR=folder, ASAN_OPTIONS="quarantine_size_mb=16",
                UBSAN_OPTIONS="print_stacktrace=1")


def fuzz(program, build, seconds, seed):
    """One target: its name, whether it ended well, and what it printed."""
    name = program.name[len("fuzz_"):]
    corpus = build / "corpus" / name
    corpus.mkdir(parents=True, exist_ok=True)
    command = [program, *LIMITS, f"-max_total_time={seconds}", f"-seed={seed}",
               "-print_final_stats=1",
               f"-artifact_prefix={build}/found/{name}-"]
    dictionary = ROOT / "fuzz" / f"{name}.dict"
    if dictionary.exists():
        command.append(f"-dict={dictionary}")
    # Files in memory: a disk would take most of the time.
    folder = tempfile.mkdtemp(prefix="zelieml-fuzz-",
                              dir=MEMORY if os.access(MEMORY, os.W_OK) else None)
    try:
        run = subprocess.run([*command, corpus, ROOT / "fuzz" / "corpus" / name],
                             env=environment(folder), errors="replace", check=False,
                             stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT)
    finally:
        shutil.rmtree(folder)
    (build / f"{name}.log").write_text(run.stdout)
    return name, run.returncode == 0, run.stdout


def number(pattern, output):
    found = re.findall(pattern, output, re.M)
    return found[-1] if found else "-"


def report(name, good, output, build):
    print(f"{name:14} {number(r'number_of_executed_units: ([0-9]+)', output):>9} runs, "
          f"{number(r'average_exec_per_sec: +([0-9]+)', output):>6} a second, "
          f"{number(r' cov: ([0-9]+)', output):>5} edges reached", flush=True)
    if good:
        return
    for line in re.findall(r"^does not hold: .*|^SUMMARY: .*|^==[0-9]+== ?ERROR: .*", output, re.M):
        print(f"  {line}")
    kept = number(r"Test unit written to (.*)", output)
    print(f"  input:     {kept}")
    print(f"  in Base64: {number(r'^Base64: (.*)', output)}")
    print(f"  reproduce: {build}/fuzz/fuzz_{name} {kept}")
    print(f"  log:       {build}/{name}.log", flush=True)


def main():
    build = pathlib.Path(sys.argv[1])
    seconds = int(sys.argv[2])
    seed = int(sys.argv[3]) if len(sys.argv) > 3 else random.randint(1, 2**32 - 1)
    print(f"seed {seed}", flush=True)
    programs = sorted(path for path in (build / "fuzz").glob("fuzz_*") if path.is_file())
    if not programs:
        sys.exit(f"no fuzz target in {build}/fuzz")
    (build / "found").mkdir(exist_ok=True)
    failed = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for run in concurrent.futures.as_completed(
                [pool.submit(fuzz, program, build, seconds, seed) for program in programs]):
            name, good, output = run.result()
            report(name, good, output, build)
            failed += not good
    if failed:
        sys.exit(f"{failed} of {len(programs)} targets found a fault; "
                 "docs/TESTING.md says what to do with an input")


if __name__ == "__main__":
    main()
