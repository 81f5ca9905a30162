#!/usr/bin/env python3
"""Runs the tests that draw random words with fresh seeds for a while.

  sweep.py [--build build/release] [--minutes 60] [--side-by-side 2] [--limit 600] [--log FILE] [NAME...]

The test suite draws with one seed, so that a run tells of the change that it tests. Here every run of a test program gets a
new one, in ORVANE_TEST_SEED. Programs are those with the label `sweep`, or the ones of them whose names hold a NAME; they
take turns. A failure prints its seed, what failed, and the command that repeats it; a run that takes longer than `--limit`
seconds has failed. `--log` collects what failing runs print. Status 1 when anything failed."""
import argparse
import concurrent.futures
import itertools
import json
import os
import pathlib
import random
import re
import shlex
import subprocess
import sys
import threading
import time


def programs(options):
    """{name: command} of the tests with the label that are built."""
    listed = subprocess.run(["ctest", "--test-dir", options.build, "-L", "^sweep$", "--show-only=json-v1"], check=True,
                            capture_output=True, text=True).stdout
    return {test["name"]: test["command"] for test in json.loads(listed)["tests"]
            if "command" in test and (not options.names or any(name in test["name"] for name in options.names))}


def failed_tests(text):
    return sorted(set(re.findall(r"^\[  FAILED  \] ([\w./]+)(?:,| \()", text, re.MULTILINE)))


def run_once(command, limit, seed):
    """(failed, output) of one run."""
    try:
        done = subprocess.run([*command, "--gtest_brief=1"], env={**os.environ, "ORVANE_TEST_SEED": str(seed)},
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=limit, check=False)
    except subprocess.TimeoutExpired as late:
        return True, f"{(late.stdout or b'').decode(errors='replace')}\nended after {limit} s"
    return done.returncode != 0, done.stdout.decode(errors="replace")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, default=pathlib.Path("build/release"))
    parser.add_argument("--minutes", type=float, default=60)
    parser.add_argument("--side-by-side", type=int, default=1)
    parser.add_argument("--limit", type=float, default=600)
    parser.add_argument("--log", type=pathlib.Path)
    parser.add_argument("names", nargs="*")
    options = parser.parse_args()
    chosen = programs(options)
    if not chosen:
        raise SystemExit("no such program is built: cmake --build --preset release --target sweep_tests")
    end = time.monotonic() + 60 * options.minutes
    seeds, turns, taking = random.SystemRandom(), itertools.cycle(sorted(chosen)), threading.Lock()
    runs, failures = dict.fromkeys(chosen, 0), dict.fromkeys(chosen, 0)

    def keep_running(_):
        while time.monotonic() < end:
            with taking:
                name, seed = next(turns), seeds.randrange(1 << 64)
            failed, text = run_once(chosen[name], options.limit, seed)
            with taking:
                runs[name] += 1
                failures[name] += failed
                if not failed:
                    continue
                tests = failed_tests(text)
                repeat = [*chosen[name], *([f"--gtest_filter={':'.join(tests)}"] if tests else [])]
                print(f"FAILED {name} with seed {seed}: {', '.join(tests) or text.strip().splitlines()[-1:]}\n"
                      f"  ORVANE_TEST_SEED={seed} {shlex.join(repeat)}", flush=True)
                if options.log:
                    with options.log.open("a") as log:
                        log.write(f"==== {name}, seed {seed}\n{text}\n")

    with concurrent.futures.ThreadPoolExecutor(options.side_by_side) as pool:
        list(pool.map(keep_running, range(options.side_by_side)))
    for name in sorted(chosen):
        print(f"{runs[name]:5} runs  {failures[name]:3} failed  {name}")
    print(f"{sum(runs.values())} runs, {sum(failures.values())} failed")
    return 1 if sum(failures.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
