#!/usr/bin/env python3
"""Lists what the headers of src/ declare for others without saying what it does.

  check_docs.py [--most 0] [--quiet] [ROOT | HEADER...]

Counted are free functions, types, and public functions of types. Each needs a comment directly above, or behind it on its
line; a comment counts for the functions below it as well, up to the next blank line. A type may be explained by the comment
that opens its header, if that names it; the fields of a type that is explained may speak for themselves.

Not counted: overrides (the base says it), functions without arguments whose body is a single `return` in the header, what is
defaulted or deleted, constructors without arguments, destructors, assignments, comparisons and arithmetic operators,
definitions of what the header declared before, forward declarations, and what lies in a nameless namespace, in a namespace
`detail` or in a kernel (*.kernel.h)."""
import argparse
import pathlib
import re
import sys

from cpp_declarations import blanked, declarations, without_templates

ACCESSOR = re.compile(r"\s*(?:return\b[^;]*;)?\s*")
OBVIOUS = re.compile(r"~|operator\s*(=|[-+*/%&|^<>=!]=|[-+*/%&|^<>]|<<|>>|<=>)$")


def obvious(one):
    """Whether a function needs no words by the rules above."""
    head, scope = one.head, one.scopes[-1][1] if one.scopes else ""
    if OBVIOUS.match(one.name) or (one.name == scope and not one.arguments):
        return True
    if re.search(r"(\boverride\b|\bfinal\b)|=\s*(default|delete)$", head):
        return True
    if re.search(rf"[\w>]\s*::\s*{re.escape(one.name)}\s*\(", head):
        return True
    return one.body is not None and not one.arguments and bool(ACCESSOR.fullmatch(one.body))


def closed_off(one):
    return any(kind == "namespace" and name in ("", "detail") for kind, name in one.scopes) or one.access != "public"


class Header:
    def __init__(self, path):
        text = path.read_text()
        self.lines = text.splitlines()
        self.code = blanked(text).splitlines()
        self.declared = declarations(text)
        self.functions = {line: one for one in self.declared if one.kind == "function"
                          for line in range(one.first, one.last + 1 + (one.body or "").count("\n"))}
        opening = []
        for line in self.lines:
            if not line.startswith("//"):
                break
            opening.append(line)
        self.opening = " ".join(opening)

    def is_comment(self, line):
        return 1 <= line <= len(self.lines) and bool(self.lines[line - 1].strip()) and not self.code[line - 1].strip() \
            and not self.lines[line - 1].lstrip().startswith("#")

    def explained(self, one):
        last = one.last + (one.body or "").count("\n")
        if any("//" in self.lines[line - 1] for line in range(one.first, min(last, len(self.lines)) + 1)
               if one.kind == "function" or line <= one.last):
            return True
        above = one.first - 1
        while one.kind == "function" and above in self.functions and not self.is_comment(above):
            above = self.functions[above].first - 1
        return self.is_comment(above)

    def bare(self):
        private, known = set(), set()
        for one in sorted(self.declared, key=lambda one: one.first):
            place = tuple(one.scopes) + ((one.kind, one.name),)
            if closed_off(one) or place[:-1] in private:
                private.add(place)
                continue
            if one.kind == "function":
                if not obvious(one) and not self.explained(one) and (place not in known or one.body is None):
                    yield one
                known.add(place)
            elif one.kind in ("class", "enum") and one.body is not None and one.name:
                special = re.match(r"(class|struct)\s+[\w:]+\s*<", without_templates(one.head))
                named = re.search(rf"\b{one.name}\b", self.opening)
                if not special and not named and not self.explained(one):
                    yield one


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--most", type=int, default=0, help="how many pass")
    parser.add_argument("--quiet", action="store_true", help="print the list only when it is too long")
    parser.add_argument("paths", nargs="*", type=pathlib.Path)
    options = parser.parse_args()
    root = pathlib.Path(__file__).resolve().parent.parent
    paths = options.paths or [root]
    headers = []
    for path in paths:
        below = path / "src" if (path / "src").is_dir() else path
        headers += sorted(below.rglob("*.h")) if path.is_dir() else [path]
    headers = [path for path in headers if not path.name.endswith(".kernel.h")]
    if not headers:
        raise SystemExit("no headers: nothing could be checked")
    counted, places = 0, []
    for path in headers:
        header = Header(path)
        counted += sum(one.kind in ("function", "class", "enum") for one in header.declared)
        shown = path.relative_to(root) if path.is_relative_to(root) else path
        places += [f"{shown}:{one.first}: {one.kind} {'::'.join(n for k, n in one.scopes if k == 'class')}"
                   f"{'::' if any(k == 'class' for k, _ in one.scopes) else ''}{one.name}" for one in header.bare()]
    if not options.quiet or len(places) > options.most:
        print("".join(f"{place}\n" for place in places), end="")
    print(f"{len(headers)} headers, {counted} declarations, {len(places)} not explained, at most {options.most} may be")
    return 1 if len(places) > options.most else 0


if __name__ == "__main__":
    sys.exit(main())
