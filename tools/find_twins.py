#!/usr/bin/env python3
"""Counts places in src/ that share six or more lines with another place.

  find_twins.py [--lines 6] [--list] [ROOT]

Lines are compared without comments, blanks, includes and lines of brackets alone; "exact" means the same words, "alike in
shape" the same after every name and number is taken for every other. A place is a longest run of lines of which each six
stand somewhere else as well; runs that are mostly declarations of one form (tables, lists of fields) have too few different
lines to count. Data files (*.inc) are not looked at."""
import argparse
import collections
import pathlib
import re
import sys

from cpp_declarations import blanked

WORD = re.compile(r"[A-Za-z_]\w*|\d[\w.']*|\S")
KEYWORDS = {"if", "for", "while", "switch", "case", "return", "const", "constexpr", "template", "class", "struct", "static_cast",
            "throw", "else", "do", "auto", "void", "bool", "int", "break", "continue", "override", "public", "private", "new"}
TRIVIAL = re.compile(r"[\s{}();,\]]*(?:else|public:|private:|break;|namespace.*|#.*)?[\s{}();,]*")


def lines_of(path, shape):
    """(line number, text to compare) of the lines that count."""
    found = []
    for number, line in enumerate(blanked(path.read_text()).splitlines(), 1):
        if TRIVIAL.fullmatch(line):
            continue
        words = WORD.findall(line)
        if shape:
            words = [w if w in KEYWORDS or not (w[0].isalnum() or w[0] == "_") else "x" for w in words]
        found.append((number, " ".join(words)))
    return found


def twins(files, count, shape):
    """[(path, first line, last line)] of every place."""
    windows = collections.defaultdict(list)
    texts = {path: lines_of(path, shape) for path in files}
    for path, lines in texts.items():
        for i in range(len(lines) - count + 1):
            text = tuple(line for _, line in lines[i:i + count])
            if len(set(text)) >= (count if shape else count - 1):
                windows[text].append((path, i))
    shared = collections.defaultdict(set)
    for places in windows.values():
        if len(places) > 1:
            for path, i in places:
                shared[path].update(range(i, i + count))
    found = []
    for path, indices in shared.items():
        lines, begin, last = texts[path], None, None
        for i in sorted(indices):
            if last is None or i != last + 1:
                if begin is not None:
                    found.append((path, lines[begin][0], lines[last][0]))
                begin = i
            last = i
        found.append((path, lines[begin][0], lines[last][0]))
    return found


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--lines", type=int, default=6)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("root", nargs="?", type=pathlib.Path, default=pathlib.Path(__file__).resolve().parent.parent)
    options = parser.parse_args()
    files = [path for path in sorted((options.root / "src").rglob("*")) if path.suffix in (".h", ".cpp")]
    for words, shape in (("exact", False), ("alike in shape", True)):
        found = twins(files, options.lines, shape)
        if options.list:
            for path, first, last in found:
                print(f"{path.relative_to(options.root)}:{first}-{last}: {words}")
        print(f"{len(found)} places {words}, {sum(last - first + 1 for _, first, last in found)} lines")
    return 0


if __name__ == "__main__":
    sys.exit(main())
