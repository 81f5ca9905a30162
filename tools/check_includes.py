#!/usr/bin/env python3
"""Fails on an include that the graph of folders does not allow, in src/, tests/ and bench/, or on a cycle of files.

The graph stands in one place: `orvane_folder(USES ...)` in the CMakeLists.txt of each folder of src/. A folder may
include what it uses and what that may include. A folder of tests/ or bench/ stands for the folder of src/ with its name
and may include what that may, the same in tests/ or bench/, and support/. The table in docs/architecture.md states the
same graph; it is compared here, and rewritten with --write.

usage: check_includes.py [--write] [ROOT]"""
import pathlib
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)
FOLDER = re.compile(r"^orvane_folder\(([^)]*)\)", re.MULTILINE)
# Folders of tests/ and bench/ that run finished programs, measure every family through the front, or help others; they may
# include all of src/, but no other tests or benchmarks.
PROGRAMS = {"tests": {"support", "faults", "fuzz", "lint", "documents"}, "bench": {"support", "pi", "multiply", "swap"}}
# What the main of a test or a benchmark calls before it starts, whatever it is about.
REGISTRATION = {"transforms/registration.h", "threads/frameworks.h", "threads/push_pool_framework.h"}
ROW = re.compile(r"^\| `([\w/]+)` \| (.*) \| (.*) \|$", re.MULTILINE)


def uses_of(list_file):
    """The folders after USES in orvane_folder(); None when the file calls it not."""
    call = FOLDER.search(list_file.read_text())
    if not call:
        return None
    words = call.group(1).split()
    words = words[: words.index("EXCEPT")] if "EXCEPT" in words else words
    return words[1:] if words[:1] == ["USES"] else []


def graph_of(root):
    """For each folder of src/ what it uses."""
    graph = {}
    for list_file in sorted((root / "src").rglob("CMakeLists.txt")):
        used = uses_of(list_file)
        if used is not None:
            graph[list_file.parent.relative_to(root / "src").as_posix()] = used
    return graph


def closure(graph, folder):
    seen, todo = set(), [folder]
    while todo:
        for lower in graph.get(todo.pop(), []):
            if lower not in seen:
                seen.add(lower)
                todo.append(lower)
    return seen


def sources(base):
    return [p for p in sorted(base.rglob("*")) if p.suffix in (".h", ".cpp", ".inc")]


def folder_of(name):
    return name.rsplit("/", 1)[0]


def check_graph(graph, faults):
    for folder in graph:
        for used in graph[folder]:
            if used not in graph:
                faults.append(f"src/{folder}: uses {used}, which is no folder of src/")
        if folder in closure(graph, folder):
            faults.append(f"src/{folder}: uses itself through others")


def check_src(root, graph, faults):
    files = {}
    for path in sources(root / "src"):
        name = path.relative_to(root / "src").as_posix()
        folder = folder_of(name)
        if folder not in graph:
            faults.append(f"src/{name}: its folder has no orvane_folder()")
            continue
        allowed = closure(graph, folder) | {folder}
        files[name] = []
        for included in INCLUDE.findall(path.read_text()):
            if (root / "src" / included).exists():
                files[name].append(included)
            elif not (root / "src" / (included + ".in")).exists():
                faults.append(f"src/{name}: includes {included}, which does not exist under src/")
                continue
            if folder_of(included) not in allowed:
                faults.append(f"src/{name}: {folder}/ may not include {folder_of(included)}/ ({included})")
    return files


def check_mirror(root, tree, graph, faults):
    """tests/ or bench/: a file there may include what its folder of src/ may, and the mirror of it."""
    count = 0
    for path in sources(root / tree):
        name = path.relative_to(root / tree).as_posix()
        folder = folder_of(name)
        count += 1
        if folder in PROGRAMS[tree]:
            allowed, allowed_here = set(graph), {folder, "support"}
        elif folder in graph:
            allowed = closure(graph, folder) | {folder}
            allowed_here = allowed | {"support"}
        else:
            faults.append(f"{tree}/{name}: there is no folder src/{folder}")
            continue
        for included in INCLUDE.findall(path.read_text()):
            places = [base for base in ("src", tree) if (root / base / included).exists()]
            if not places:
                faults.append(f"{tree}/{name}: includes {included}, which does not exist under src/ or {tree}/")
            elif included not in REGISTRATION and folder_of(included) not in (allowed if "src" in places else allowed_here):
                faults.append(f"{tree}/{name}: may not include {folder_of(included)}/ ({included})")
    return count


def check_cycles(files, faults):
    state = {}

    def visit(name, trail):
        if state.get(name) == 2:
            return
        if state.get(name) == 1:
            faults.append("include cycle: " + " -> ".join(trail[trail.index(name):] + [name]))
            return
        state[name] = 1
        for included in files.get(name, []):
            visit(included, trail + [name])
        state[name] = 2

    for name in files:
        visit(name, [])


def check_page(root, graph, write, faults):
    """The table of docs/architecture.md: a row for each folder, whose last column is what the folder uses."""
    page = root / "docs" / "architecture.md"
    text = page.read_text()
    stated = lambda folder: ", ".join(graph[folder]) or "nothing of ours"
    rows = {row.group(1): row.group(3) for row in ROW.finditer(text)}
    for folder in sorted(set(graph) - set(rows)):
        faults.append(f"docs/architecture.md: no row for src/{folder}")
    for folder in sorted(set(rows) - set(graph)):
        faults.append(f"docs/architecture.md: a row for {folder}, which is no folder of src/")
    if write:
        page.write_text(ROW.sub(lambda r: f"| `{r.group(1)}` | {r.group(2)} | {stated(r.group(1))} |"
                                if r.group(1) in graph else r.group(0), text))
        return
    for folder, column in rows.items():
        if folder in graph and column != stated(folder):
            faults.append(f"docs/architecture.md: {folder} uses {stated(folder)}, the page says {column}"
                          " (check_includes.py --write mends it)")


def check_readmes(root, graph, faults):
    for folder in graph:
        if not (root / "src" / folder / "README.md").exists():
            faults.append(f"src/{folder}: has no README.md")


def check(root, write=False):
    """(faults, folders, files) of the tree at `root`."""
    graph, faults = graph_of(root), []
    check_graph(graph, faults)
    files = check_src(root, graph, faults)
    count = len(files) + sum(check_mirror(root, tree, graph, faults) for tree in ("tests", "bench"))
    check_cycles(files, faults)
    check_page(root, graph, write, faults)
    check_readmes(root, graph, faults)
    return faults, len(graph), count


def main():
    arguments = [a for a in sys.argv[1:] if a != "--write"]
    root = pathlib.Path(arguments[0]) if arguments else pathlib.Path(__file__).resolve().parent.parent
    faults, folders, files = check(root, "--write" in sys.argv)
    for fault in faults:
        print(fault)
    print(f"{folders} folders, {files} files, {len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
