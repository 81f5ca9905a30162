#!/usr/bin/env python3
"""Fails on an include between folders of src/ that the architecture does not allow, or on an include cycle."""
import pathlib
import re
import sys

# What each folder may include directly; what those may include is allowed too.
ALLOWED = {
    "frame": [],
    "config": ["frame"],
    "system": ["frame", "config", "simd"],
    "parallel": ["frame", "config", "system"],
    "simd": [],
    "numbers": ["parallel", "simd"],
    "transforms": ["numbers", "simd"],
    "swap": ["config", "parallel", "numbers", "transforms"],
    "functions": ["numbers", "swap"],
    "series": ["functions"],
    "digits": ["numbers", "swap"],
    "compute": ["series", "digits", "swap"],
    "tools": ["transforms", "swap", "digits"],
    "app": ["compute", "tools"],
}
# Files that belong to the lower half of a folder and may not include its upper half.
LOWER = {
    "numbers": ("word", "block_carry", "hash", "shoup_", "basic_int", "simple_int", "basecase", "algorithm", "crt_", "product_areas"),
    "swap": ("raw_file", "raw_io_buffer", "file_calls", "buffered_reader", "new_file", "path_check", "raid_descriptor"),
}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


def closure(folder):
    seen, todo = set(), [folder]
    while todo:
        for lower in ALLOWED[todo.pop()]:
            if lower not in seen:
                seen.add(lower)
                todo.append(lower)
    return seen


def is_lower(folder, name):
    return folder in LOWER and pathlib.Path(name).name.startswith(LOWER[folder])


def main():
    root = pathlib.Path(__file__).resolve().parent.parent / "src"
    faults, graph = [], {}
    for path in sorted(root.rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        name = path.relative_to(root).as_posix()
        folder = name.split("/")[0]
        if folder not in ALLOWED:
            faults.append(f"{name}: folder is not in the graph")
            continue
        graph[name] = [i for i in INCLUDE.findall(path.read_text()) if (root / i).exists()]
        for included in INCLUDE.findall(path.read_text()):
            target = included.split("/")[0]
            if not ((root / included).exists() or (root / (included + ".in")).exists()):
                faults.append(f"{name}: includes {included}, which does not exist under src/")
            elif target == folder:
                if is_lower(folder, name) and not is_lower(folder, included):
                    faults.append(f"{name}: lower half of {folder}/ includes its upper half, {included}")
            elif target not in closure(folder):
                faults.append(f"{name}: {folder}/ may not include {target}/ ({included})")
    state = {}

    def visit(name, trail):
        if state.get(name) == 2:
            return
        if state.get(name) == 1:
            faults.append("include cycle: " + " -> ".join(trail[trail.index(name):] + [name]))
            return
        state[name] = 1
        for included in graph.get(name, []):
            visit(included, trail + [name])
        state[name] = 2

    for name in graph:
        visit(name, [])
    for fault in faults:
        print(fault)
    print(f"{len(graph)} files, {len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
