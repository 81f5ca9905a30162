#!/usr/bin/env python3
"""Every constant by every algorithm, from start to written file: time beside Pi's and beside Arb's, and memory.

  compare.py [--build DIR] [--digits 10000000] [--threads 1] [--runs 3] [--only zeta3,log:2] [--without-arb]
             [--csv FILE]

Pi runs before each row, so that ratios hold on a machine whose clock changes. Arb runs once per constant, on one thread, and
its digits are compared with ours; it is left out where bench/constants/arb_constants was not built (Debian:
libflint-arb-dev). Every algorithm's digits are compared with those of the first of its constant. Prints medians."""
import argparse
import csv
import os
import pathlib
import statistics
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
from whole_runs import ROOT, commit_of, one_size_options, processor, stated_bytes, timed

ROWS = [("e", ("exp(1)", "exp(-1)")), ("sqrt:2", ("newton",)), ("log:2", ("zuniga", "machin-primary", "machin-secondary")),
        ("zeta3", ("zuniga", "wedeniwski", "az")),
        ("catalan", ("pilehrood-short", "zuniga", "pilehrood-long", "guillera", "lupas", "huvent")),
        ("lemniscate", ("singular", "agm-pi", "gauss", "sebah")), ("gamma", ("brent-refined", "brent-original"))]
# Digits at the end of a text that may have been rounded by either program.
ROUNDED = 20


class Runs:
    def __init__(self, options, folder):
        self.build = pathlib.Path(options.build).resolve()
        self.digits, self.threads, self.folder = options.digits, options.threads, pathlib.Path(folder)

    def own(self, constant, algorithm):
        """Seconds, peak bytes, stated bytes and the digits as text."""
        for old in self.folder.glob("*.txt"):
            old.unlink()
        framework = "none" if self.threads == 1 else "pushpool"
        seconds, peak, text = timed(
            [str(self.build / "orvane"), "pause:-2", "priority:0", "colors:0", "skip-warnings", "custom", constant,
             f"-algorithm:{algorithm}", f"-dec:{self.digits}", "-verify:0", f"-TD:{self.threads}", f"-PF:{framework}",
             "-o", str(self.folder)], self.folder)
        files = [path for path in self.folder.glob("*.txt") if not path.name.startswith("Validation")]
        return seconds, peak, stated_bytes(text), files[0].read_text().strip()

    def arb(self, constant):
        """Seconds and digits; nothing where the program was not built."""
        program = self.build / "bench" / "constants" / "arb_constants"
        if not program.exists():
            return None
        path = self.folder / "arb.digits"
        seconds, _, _ = timed([str(program), constant, str(self.digits), str(path)], self.folder)
        return seconds, path.read_text().strip()


def agree(a, b):
    length = min(len(a), len(b)) - ROUNDED
    return a[:length] == b[:length]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    one_size_options(parser)
    parser.add_argument("--without-arb", action="store_true")
    parser.add_argument("--csv")
    options = parser.parse_args()
    only = options.only.split(",") if options.only else [constant for constant, _ in ROWS]
    print(f"{processor()}, {os.cpu_count()} processors, commit {commit_of(ROOT)}, {options.digits:,} digits, "
          f"{options.threads} thread{'s' if options.threads > 1 else ''}, median of {options.runs}")
    print(f"{'constant':>11} {'algorithm':>17} {'seconds':>9} {'of Pi':>6} {'Arb s':>9} {'times':>6} {'stated B/digit':>14} "
          f"{'peak B/digit':>12}  digits")
    table, wrong = [], False
    with tempfile.TemporaryDirectory() as folder:
        runs = Runs(options, folder)
        for constant, algorithms in ROWS:
            if constant not in only:
                continue
            arb = None if options.without_arb else runs.arb(constant)
            reference = arb[1] if arb else None
            for algorithm in algorithms:
                seconds, ratios = [], []
                for _ in range(options.runs):
                    pi = runs.own("pi", "chudnovsky")[0]
                    own, peak, stated, digits = runs.own(constant, algorithm)
                    seconds.append(own)
                    ratios.append(own / pi)
                reference = reference or digits
                same = agree(digits, reference)
                wrong = wrong or not same
                own, ratio = statistics.median(seconds), statistics.median(ratios)
                peer = f"{arb[0]:9.2f} {arb[0] / own:6.2f}" if arb else f"{'-':>9} {'-':>6}"
                print(f"{constant:>11} {algorithm:>17} {own:9.3f} {ratio:6.2f} {peer} {stated / options.digits:14.2f} "
                      f"{peak / options.digits:12.2f}  {'equal' if same else 'DIFFERENT'}", flush=True)
                table.append((constant, algorithm, f"{own:.3f}", f"{ratio:.3f}", f"{arb[0]:.3f}" if arb else "",
                              f"{stated / options.digits:.3f}"))
    if options.csv:
        with open(options.csv, "w", newline="") as file:
            writer = csv.writer(file)
            writer.writerow(("constant", "algorithm", "seconds", "of_pi", "arb_seconds", "bytes_per_digit"))
            writer.writerows(table)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
