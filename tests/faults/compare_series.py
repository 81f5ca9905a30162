#!/usr/bin/env python3
"""Pi by the series of the Chudnovskys and by Ramanujan's: they share no term, so equal digits prove both.

  compare_series.py --program build/release/orvane [--digits 100000000] [-- OPTION...]

Runs one after the other and compares the digit files byte by byte. What follows `--` is handed to the program."""
import argparse
import filecmp
import pathlib
import subprocess
import sys
import tempfile


def compute(options, algorithm, folder):
    command = [options.program, "pause:-2", "priority:0", "colors:0", "skip-warnings", "custom", "pi",
               f"-algorithm:{algorithm}", f"-dec:{options.digits}", "-o", folder, *options.rest]
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          check=False)
    if done.returncode != 0:
        raise SystemExit(f"{' '.join(command)} ended with {done.returncode}:\n{done.stdout.decode(errors='replace')}")
    files = sorted(pathlib.Path(folder).iterdir())
    if not files:
        raise SystemExit(f"{algorithm} left no digit file")
    return files


def main():
    arguments, rest = sys.argv[1:], []
    if "--" in arguments:
        at = arguments.index("--")
        arguments, rest = arguments[:at], arguments[at + 1:]
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", required=True)
    parser.add_argument("--digits", type=int, default=100000000)
    options = parser.parse_args(arguments)
    options.rest = rest
    with tempfile.TemporaryDirectory() as first, tempfile.TemporaryDirectory() as second:
        pairs = list(zip(compute(options, "chudnovsky", first), compute(options, "ramanujan", second), strict=True))
        for one, other in pairs:
            if one.stat().st_size < options.digits // 3 or not filecmp.cmp(one, other, shallow=False):
                raise SystemExit(f"FAILED: {one.name} and {other.name} differ")
    print(f"{options.digits} digits by two series are equal")


if __name__ == "__main__":
    main()
