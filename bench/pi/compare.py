#!/usr/bin/env python3
"""Pi from start to written file: this program against a plain GMP program, in turn, on this machine.

  compare.py [--build DIR] [--runs N] [--digits 1000000,10000000] [--threads 1,2] [--verify] [--stages FILE]
             [--algorithm NAME] [--without-gmp-from DIGITS]

Prints the median wall time of each, the ratio to GMP (pair by pair, then the median), the speed-up of threads,
what of its stated memory the process really used, and the bytes a digit. Both write their digits to a file;
--verify reads ours back and proves them. --stages writes a CSV of medians: digits, threads, stage (those that the
program prints, "total" and "gmp"), seconds. From --without-gmp-from digits on GMP is left out, and its columns are
empty."""
import argparse
import csv
import os
import pathlib
import re
import statistics
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
from whole_runs import ROOT, commit_of, measuring_options, processor, stated_bytes, timed


def stage_seconds(text):
    """Seconds of each stage that a run printed, in order."""
    found = re.findall(r"^([A-Z][A-Za-z ]+?)(?:\.\.\.|:)?  +([0-9.]+) seconds\r?$", text, re.MULTILINE)
    totals = ("Total Computation Time", "Start-to-End Wall Time", "Pi")
    return {name: float(seconds) for name, seconds in found if name not in totals}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    measuring_options(parser, 5)
    parser.add_argument("--digits", default="1000000,10000000")
    parser.add_argument("--threads", default="1,2")
    parser.add_argument("--verify", action="store_true")
    parser.add_argument("--stages", help="CSV file")
    parser.add_argument("--algorithm", default="chudnovsky")
    parser.add_argument("--without-gmp-from", type=int, default=1 << 62)
    options = parser.parse_args()
    build = pathlib.Path(options.build).resolve()
    print(f"{processor()}, {os.cpu_count()} processors, commit {commit_of(ROOT)}, median of {options.runs} pairs")
    print(f"{'digits':>12} {'threads':>7} {'GMP s':>9} {'orvane s':>9} {'ratio':>7} {'speed-up':>8} "
          f"{'stated MiB':>10} {'peak MiB':>9} {'bytes/digit':>11}")
    rows = []
    with tempfile.TemporaryDirectory() as folder:
        for digits in (int(d) for d in options.digits.split(",")):
            single = None
            for threads in (int(t) for t in options.threads.split(",")):
                framework = "none" if threads == 1 else "pushpool"
                command = [str(build / "orvane"), "pause:-2", "priority:0", "colors:0", "skip-warnings", "custom",
                           "pi", f"-algorithm:{options.algorithm}", f"-dec:{digits}",
                           f"-verify:{int(options.verify)}", f"-TD:{threads}", f"-PF:{framework}", "-o", folder]
                peer_times, times, ratios, stages = [], [], [], []
                for _ in range(options.runs):
                    if digits < options.without_gmp_from:
                        peer, _, _ = timed([str(build / "bench/pi/gmp_pi"), str(digits), "gmp.txt"], folder)
                        peer_times.append(peer)
                    own, peak, text = timed(command, folder)
                    times.append(own)
                    stages.append(stage_seconds(text))
                    if peer_times:
                        ratios.append(own / peer_times[-1])
                own = statistics.median(times)
                single = single or own
                peer_text = f"{statistics.median(peer_times):9.3f}" if peer_times else f"{'-':>9}"
                ratio_text = f"{statistics.median(ratios):7.3f}" if ratios else f"{'-':>7}"
                print(f"{digits:12,} {threads:7} {peer_text} {own:9.3f} {ratio_text} {single / own:8.2f} "
                      f"{stated_bytes(text) / 2**20:10.1f} {peak / 2**20:9.1f} {peak / digits:11.2f}", flush=True)
                rows.append((digits, threads, "total", own))
                if peer_times and threads == 1:
                    rows.append((digits, threads, "gmp", statistics.median(peer_times)))
                for name in stages[0]:
                    rows.append((digits, threads, name, statistics.median(run[name] for run in stages)))
    if options.stages:
        with open(options.stages, "w", newline="") as file:
            writer = csv.writer(file)
            writer.writerow(("digits", "threads", "stage", "seconds"))
            writer.writerows((d, t, name, f"{seconds:.4f}") for d, t, name, seconds in rows)


if __name__ == "__main__":
    main()
