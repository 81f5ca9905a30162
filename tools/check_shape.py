#!/usr/bin/env python3
"""Holds src/ to its shapes: short argument lists, no console in the mathematics, shells that name no buffer.

  check_shape.py [--over-eight 0] [--over-six 20] [--console 0] [--shells 0] [--quiet] [ROOT]

1. No definition of a function takes more than eight arguments, and at most twenty take more than six. What belongs
   together is handed over as one record; overloads and overrides count one by one.
2. Nothing that the stages of a computation (src/session) stand on calls the console. A result is returned, a progress is
   told to a status node, and what must be said at once goes to the output in force (core/output.h); the console is one of
   these. Its own folder is exempt.
3. The shells of functions/, splitting/ and constants/ name no LinearHeapBuffer and no BigFloat: they hold schedules and
   formulas, which do not depend on where numbers are stored. Inner bodies, which are listed below, and explicit
   instantiations do.

Each option is the largest number of places that passes. Lists them all, fails when one number is exceeded."""
import argparse
import pathlib
import re
import sys

from check_includes import closure, graph_of
from cpp_declarations import blanked, declarations

SHELLS = ("functions", "splitting", "constants")
# What has, or will have, one body for each kind of store.
INNER = {"functions/newton_level", "functions/newton_small", "functions/newton_steps", "functions/residual",
         "functions/proved_window", "functions/hashed_steps", "functions/power_ladder",
         "functions/radix_conversion", "functions/convert_plan", "functions/power_table", "functions/verify_conversion",
         "splitting/bsr_block", "splitting/psr_block", "splitting/merge", "splitting/kind", "splitting/outer_sum",
         "splitting/brent_mcmillan", "splitting/brent_mcmillan_block", "splitting/node_products", "constants/final_product"}
STORED = re.compile(r"\bLinearHeapBuffer\b|\bBigFloat\s*<")


def sources(base):
    return [(path, path.relative_to(base).as_posix()) for path in sorted(base.rglob("*")) if path.suffix in (".h", ".cpp")]


def long_definitions(files):
    """(arguments, place) of every definition with more than six, the longest first."""
    found = [(len(one.arguments), f"src/{name}:{one.first}: {one.name} takes {len(one.arguments)} arguments")
             for path, name in files for one in declarations(path.read_text())
             if one.kind == "function" and one.body is not None and len(one.arguments) > 6]
    return sorted(found, key=lambda one: (-one[0], one[1]))


def lines_with(files, pattern, passes):
    """Lines of code, not of comments, that hold the pattern in files that `passes` does not let through."""
    found = []
    for path, name in files:
        if not passes(name):
            for number, line in enumerate(blanked(path.read_text()).splitlines(), 1):
                if pattern.search(line):
                    found.append(f"src/{name}:{number}: {' '.join(line.split())}")
    return found


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--over-eight", type=int, default=0)
    parser.add_argument("--over-six", type=int, default=20)
    parser.add_argument("--console", type=int, default=0)
    parser.add_argument("--shells", type=int, default=0)
    parser.add_argument("--quiet", action="store_true", help="name only the places of a rule that is broken")
    parser.add_argument("root", nargs="?", type=pathlib.Path, default=pathlib.Path(__file__).resolve().parent.parent)
    options = parser.parse_args()
    base = options.root / "src"
    files, below = sources(base), closure(graph_of(options.root), "session")
    if not files or not below:
        raise SystemExit("no sources, or no folder src/session: nothing could be checked")
    folder = lambda name: name.rpartition("/")[0]

    long = long_definitions(files)
    rules = [
        ("definitions take more than 8 arguments", options.over_eight, [place for count, place in long if count > 8]),
        ("definitions take more than 6 arguments", options.over_six, [place for _, place in long]),
        ("calls of the console below src/session", options.console,
         lines_with(files, re.compile(r"\bconsole::(?!\s*\{)(?!\w+\s*\{)"),
                    lambda name: folder(name) not in below or folder(name) == "console")),
        ("lines of shells name a buffer or a float", options.shells,
         lines_with(files, re.compile(rf"^(?!\s*(?:extern\s+)?template\s+\w).*(?:{STORED.pattern})"),
                    lambda name: folder(name) not in SHELLS or name.split(".")[0] in INNER)),
    ]
    broken = False
    for words, most, places in rules:
        if not options.quiet or len(places) > most:
            print("".join(f"{place}\n" for place in places), end="")
        print(f"{len(places)} {words}, at most {most} may")
        broken |= len(places) > most
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
