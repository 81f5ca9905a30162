#!/usr/bin/env python3
"""Sequential speeds of the I/O benchmark beside dd on the same folder, in turns, within a minute of each other.

    compare_dd.py FOLDER [--memory MIB] [--runs N] [--build DIR]

dd moves blocks of 64 MiB with direct flags, a file as long as the benchmark's, twice in each direction as the benchmark
does. One row a run, in MB/s, then the medians. The ratio is the benchmark's speed divided by dd's.
"""
import argparse
import json
import pathlib
import statistics
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
from whole_runs import measuring_options

PASSES = 2
BLOCK_MIB = 64


def dd_speed(source, target, blocks, flags):
    start = time.perf_counter()
    for _ in range(PASSES):
        subprocess.run(["dd", f"if={source}", f"of={target}", f"bs={BLOCK_MIB}M", f"count={blocks}", "conv=notrunc",
                        "status=none", *flags], check=True)
    return PASSES * blocks * (BLOCK_MIB << 20) / (time.perf_counter() - start)


def dd_speeds(folder, mib):
    file = folder / "compare_dd.bin"
    blocks = max(1, mib // BLOCK_MIB)
    try:
        subprocess.run(["fallocate", "-l", str(blocks * (BLOCK_MIB << 20)), file], check=True)
        return (dd_speed("/dev/zero", file, blocks, ["oflag=direct"]),
                dd_speed(file, "/dev/null", blocks, ["iflag=direct"]))
    finally:
        file.unlink(missing_ok=True)


def benchmark_speeds(program, folder, mib):
    command = [program, "priority:0", "pause:-2", "colors:0", "benchio", f"-M:{mib}M", "-json:1", "-swap:raid0", "."]
    run = subprocess.run(command, cwd=folder, capture_output=True, text=True)
    results = sorted(folder.glob("I-O Benchmark*.json"))
    if run.returncode != 0 or not results:
        raise SystemExit(f"{' '.join(map(str, command))} ended with {run.returncode}:\n{run.stdout}{run.stderr}")
    measured = json.loads(results[-1].read_text())
    for file in results:
        file.unlink()
    return measured["SequentialWrite"], measured["SequentialRead"]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--memory", type=int, default=1024, metavar="MIB")
    measuring_options(parser, 3)
    options = parser.parse_args()
    folder = options.folder.resolve() / "compare_dd"
    folder.mkdir(parents=True)
    program = pathlib.Path(options.build).resolve() / "orvane"
    print(" run   dd write    benchio  ratio    dd read    benchio  ratio")
    rows = []
    try:
        for run in range(options.runs):
            dd = dd_speeds(folder, options.memory)
            own = benchmark_speeds(program, folder, options.memory)
            rows.append((dd[0], own[0], own[0] / dd[0], dd[1], own[1], own[1] / dd[1]))
            show(str(run + 1), rows[-1])
    finally:
        folder.rmdir()
    show("all", [statistics.median(column) for column in zip(*rows)])


def show(label, row):
    write, own_write, write_ratio, read, own_read, read_ratio = row
    print(f"{label:>4} {write / 1e6:10.0f} {own_write / 1e6:10.0f} {write_ratio:6.2f} "
          f"{read / 1e6:10.0f} {own_read / 1e6:10.0f} {read_ratio:6.2f}", flush=True)


if __name__ == "__main__":
    main()
