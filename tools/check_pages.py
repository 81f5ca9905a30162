#!/usr/bin/env python3
"""Fails when a page of documentation names a file that is not there.

Pages are README.md, docs/*.md and every README.md below src/, tests/, bench/ and tools/. A file is what stands between
backquotes and ends like a source or a page, or begins with a folder of the tree: it may be named from the top, from
src/ or tests/, from the page's own folder, or without a folder from one above it. A program may be named for its
source. A `*` stands for any name; x and NAME stand for names that the page leaves open.

usage: check_pages.py [ROOT]"""
import pathlib
import re
import sys

NAME = re.compile(r"`([\w./*-]+\.(?:h|cpp|inc|in|py|sh|md|page|png|cmake|h\.in))`|`((?:src|tests|bench|tools|docs)/[\w./*-]*)`")
OPEN = re.compile(r"x[._]|.*NAME\b")


def pages(root):
    yield root / "README.md"
    yield from sorted((root / "docs").glob("*.md"))
    for top in ("src", "tests", "bench", "tools"):
        yield from sorted((root / top).rglob("README.md"))


def exists(root, page, name):
    bases = (root, root / "src", root / "tests", page.parent)
    if any(any(base.glob(form)) for base in bases for form in (name, name + ".cpp")):
        return True
    return "/" not in name and any(page.parent.rglob(name))


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".")
    faults, names = [], 0
    for page in pages(root):
        for number, line in enumerate(page.read_text().splitlines(), 1):
            for match in NAME.finditer(line):
                name = (match.group(1) or match.group(2)).rstrip("/")
                names += 1
                if not OPEN.match(name) and not exists(root, page, name):
                    faults.append(f"{page.relative_to(root)}:{number}: names {name}, which does not exist")
    for fault in faults:
        print(fault)
    print(f"{names} names, {len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
