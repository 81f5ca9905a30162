#!/usr/bin/env python3
"""Measures the column "Approximate Difficulty" of the constants menu, and writes it.

  make_difficulties.py [--build build/release] [--digits 10000000] [--threads 1] [--runs 3] [--only pi,zeta3] [--write]

A figure is the time of a constant by one algorithm, from its first term to its last word, in radix conversions of the same run:
median of the runs. A constant has the figures of its first three algorithms of the menu, and that of its default where this is
another one. Log(n) depends on n and has its least: that of Log(2) behind "> ". Prints old and new texts; with --write the rows of
src/session/catalogue.cpp are replaced, and the same lines in the pages that show the menu. A quiet machine is needed."""
import argparse
import pathlib
import re
import statistics
import sys
import tempfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "bench" / "support"))
from whole_runs import ROOT, one_size_options, timed

CATALOGUE = ROOT / "src" / "session" / "catalogue.cpp"
SHOWN = sorted((ROOT / "tests" / "menus").glob("*.page"))
# What is measured, by the constant's key in the catalogue: the word of the command line and the algorithms.
ROWS = {
    "sqrt": ("sqrt:2", ["newton"]),
    "goldenratio": ("phi", ["newton"]),
    "e": ("e", ["exp(1)", "exp(-1)"]),
    "pi": ("pi", ["chudnovsky", "ramanujan"]),
    "log": ("log:2", ["zuniga"]),
    "zeta3": ("zeta3", ["wedeniwski", "az", "zuniga"]),
    "catalan": ("catalan", ["pilehrood-short", "pilehrood-long", "guillera"]),
    "lemniscate": ("lemniscate", ["agm-pi", "gauss", "sebah", "singular"]),
    "gamma": ("gamma", ["brent-refined", "brent-original"]),
}


def figure(options, word, algorithm):
    """Median over the runs of the constant's time through that of its radix conversion."""
    ratios = []
    framework = "none" if options.threads == 1 else "pushpool"
    for _ in range(options.runs):
        with tempfile.TemporaryDirectory() as folder:
            _, _, text = timed([str(pathlib.Path(options.build).resolve() / "orvane"), "pause:-2", "priority:0", "colors:0",
                                "skip-warnings", "custom", word, f"-algorithm:{algorithm}", f"-dec:{options.digits}", "-od:0",
                                "-verify:0", f"-TD:{options.threads}", f"-PF:{framework}"], folder)
        own = re.search(r":  ([0-9.,]+) seconds\s+Base Converting:", text)
        conversion = re.search(r"^Base Conversion:  ([0-9.,]+) seconds", text, re.M)
        if not own or not conversion or float(conversion[1]) == 0:
            raise SystemExit(f"{word} by {algorithm}: the run shows no times; more digits are needed")
        ratios.append(float(own[1].replace(",", "")) / float(conversion[1]))
    return statistics.median(ratios)


def three_digits(value):
    return f"{value:.2f}" if value < 9.995 else f"{value:.1f}" if value < 99.95 else f"{value:.0f}."


def text_of(key, figures):
    # More than three fit into 80 columns without blanks alone.
    return ("> " if key == "log" else "  ") + (" / " if len(figures) <= 3 else "/").join(three_digits(f) for f in figures)


def menu_row(text, key):
    """The match of a constant's menu row, with its name, value and difficulty."""
    return re.search(r'\.key = "' + key + r'",.*?\.menu = \{[^"]*"(?P<name>[^"]*)", "(?P<value>[^"]*)", "(?P<old>[^"]*)"\}', text,
                     re.S)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    one_size_options(parser)
    parser.add_argument("--write", action="store_true")
    options = parser.parse_args()
    for key in options.only.split(",") if options.only else ROWS:
        word, algorithms = ROWS[key]
        new = text_of(key, [figure(options, word, algorithm) for algorithm in algorithms])
        row = menu_row(CATALOGUE.read_text(), key)
        print(f'{key:>12}: "{row["old"]}" -> "{new}"', flush=True)
        if not options.write:
            continue
        source = CATALOGUE.read_text()
        CATALOGUE.write_text(source[:row.start("old")] + new + source[row.end("old"):])
        shown = re.compile("(" + re.escape(row["name"]) + " +" + re.escape(row["value"]) + " *)" + re.escape(row["old"]))
        for path in SHOWN:
            text = path.read_text()
            if shown.search(text):
                path.write_text(shown.sub(lambda line: line[1] + new, text))
    return 0


if __name__ == "__main__":
    sys.exit(main())
