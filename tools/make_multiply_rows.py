#!/usr/bin/env python3
"""Measures where the algorithms of multiplication overtake each other, and writes the size tables of the targets.

  make_multiply_rows.py [--build build/release] [--target NAME ...] [--passes 3] [--write]

For every target that this machine runs, bench/multiply times products of balanced operands by each algorithm of the
table alone. Below a threshold the smaller algorithm is taken, above it the larger one. It stands where handing over costs
least over all sizes around it, among the sizes at which both cost the same to 4 per cent: one that is ahead to the end of
one of its rows and then falls behind would else hand over at a step. Of places that cost the same to 1 per cent the first is
taken, since tables grow with it. Prints both costs at each threshold; a step of more
than a tenth is marked. With --write the rows of the measured targets in src/multiply/algorithm_rows.inc are replaced, those
of others stay as they are. A quiet machine is needed: passes are paired size by size, and medians over passes are compared."""
import argparse
import csv
import math
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
ROWS = ROOT / "src" / "multiply" / "algorithm_rows.inc"
# The order of the algorithms, and the words of an operand between which each is overtaken by the next.
ORDER = [("BKT", (20, 160)), ("FFT", (16000, 150000)), ("C17", None)]
TARGETS = {"Scalar": "kScalar", "AVX2": "kAvx2", "AVX512": "kAvx512", "AVX512-IFMA": "kAvx512Ifma"}
# Where the last two end: the largest products of "C17" and "N64".
ENDS = ['{"C17", kLargestC17}', '{"N64", kLargestN64}']


def measure(bench, target, smaller, larger, words, step, passes):
    """Median costs {words: (ns per word by `smaller`, by `larger`)} of products on target."""
    seen = {}
    for _ in range(passes):
        with tempfile.NamedTemporaryFile(suffix=".csv") as file:
            ran = subprocess.run([bench, "--target", target, "--min", str(words[0]), "--max", str(words[1]), "--step",
                                  str(step), "--families", f"{smaller},{larger}", "--csv", file.name],
                                 capture_output=True, text=True)
            if ran.returncode:
                raise RuntimeError(ran.stderr.strip())
            with open(file.name) as lines:
                for row in csv.DictReader(lines):
                    if row["operation"] == "mul":
                        seen.setdefault(int(row["words"]), {}).setdefault(row["family"], []).append(
                            float(row["ns_a_word"]))
    both = {n: (statistics.median(f[smaller]), statistics.median(f[larger]))
            for n, f in sorted(seen.items()) if smaller in f and larger in f}
    return both


def threshold(costs):
    """The largest operand, in words, for the smaller algorithm, and the costs per word there and just above."""
    sizes = sorted(costs)
    choices = []
    for i in range(len(sizes) - 1):
        # The mean of the logarithms weighs all sizes alike, whatever they cost.
        total = sum(math.log(costs[n][0 if j <= i else 1]) for j, n in enumerate(sizes)) / len(sizes)
        step = costs[sizes[i]][1] / costs[sizes[i]][0]
        choices.append((abs(math.log(step)) > math.log(1.04), total, sizes[i]))
    smooth, least, _ = min(choices)
    at = min(n for steep, total, n in choices if steep == smooth and total < least + math.log(1.01))
    return at, costs[at]


def rows_of(bench, target, passes):
    rows = []
    for (smaller, words), (larger, _) in zip(ORDER, ORDER[1:]):
        step = 1.02 if words[1] < 1000 else 1.03
        costs = measure(bench, target, smaller, larger, words, step, passes)
        at, (below, above) = threshold(costs)
        mark = "" if max(above / below, below / above) <= 1.1 else "   more than a tenth apart"
        print(f"{target}: {smaller} up to {at} words, {below:.2f} ns per word there; {larger} {above:.2f}{mark}", flush=True)
        rows.append(f'{{"{smaller}", {128 * at}}}')
    return rows + ENDS


def line_of(target, rows):
    return f"constexpr AlgorithmRow {TARGETS[target]}Rows[] = {{{', '.join(rows)}}};"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default=ROOT / "build" / "release", type=pathlib.Path)
    parser.add_argument("--target", action="append", choices=list(TARGETS))
    parser.add_argument("--passes", type=int, default=3)
    parser.add_argument("--write", action="store_true")
    options = parser.parse_args()
    bench = options.build / "bench" / "multiply" / "multiply"
    text = ROWS.read_text()
    for target in options.target or TARGETS:
        try:
            line = line_of(target, rows_of(bench, target, options.passes))
        except RuntimeError as refused:
            print(f"{target}: {refused}; its rows stay")
            continue
        text = re.sub(rf"^constexpr AlgorithmRow {TARGETS[target]}Rows\[\] = .*$", lambda _: line, text, flags=re.M)
        print(line)
    if options.write:
        ROWS.write_text(text)


if __name__ == "__main__":
    sys.exit(main())
