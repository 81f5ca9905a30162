#!/usr/bin/env python3
"""Puts small faults into a copy of the tree, one at a time, and reports which of them the tests let pass.

  mutate.py --work FOLDER [--limit 900] [--side-by-side 1] [--only WORDS] [--again] [--list] LIST...

FOLDER keeps the copy, its build (release, without benchmarks) and `results.json`, which is written after every fault: a run
that is stopped goes on where it was. A fault that has a result is taken again when its record changed, or with --again.

A LIST has records of `key: value` lines with blank lines between; `#` opens a remark:

  fault: what a user would suffer, in a few words; names the record
  file: src/session/session.cpp
  line: a line of that file without its indentation, which must be there once
  after: a line further up, where `line` stands more than once: the first one behind it is meant (may be missing)
  with: what replaces the line; nothing deletes it
  tests: words in names of tests that go first (may be missing)
  equivalent: why no test can see it (may be missing; the record is then only counted)

Tests run in this order until one fails: those named, those of the folder of the file, those of folders that may include it,
nearest first, those of no folder of src/, slow programs, then scripts that run finished programs. Within a group the quickest go first. Only what a
group needs is built. A test that kills a fault is run once without any; one that fails there too is left out. One that is not named must
fail twice.

Ends: "killed" (a test failed, or did not end), "survived", "unfinished" (no time for all tests), "equivalent", "not found" (the
line is not there, or not once), "no build" (the compiler sees it; the record is wrong). Status 1 when a fault survived."""
import argparse
import collections
import hashlib
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time
import typing

from check_includes import closure, graph_of

ROOT = pathlib.Path(__file__).resolve().parent.parent
KEYS = {"fault", "file", "line", "after", "with", "tests", "equivalent", "note"}
# A fault may leave something unused. The options stay those of every other build, so that its objects come from the cache.
QUIET = "".join(f'#pragma GCC diagnostic ignored "-W{name}"\n' for name in
                ("unused-variable", "unused-parameter", "unused-function", "unused-but-set-variable", "unused-value",
                 "unused-but-set-parameter", "unused-const-variable", "unused-local-typedefs", "misleading-indentation",
                 "tautological-compare", "type-limits", "empty-body", "return-type", "sign-compare")) + "#line 1\n"
SHORTEST_LIMIT = 60  # seconds; a test that hangs is ended after ten times what it takes, or after these


def records_of(path):
    found = []
    for number, line in enumerate(path.read_text().splitlines() + [""], 1):
        if line.startswith("#"):
            continue
        if not line.strip():
            found.append({})
            continue
        key, colon, value = line.partition(":")
        if key not in KEYS or not colon:
            raise SystemExit(f"{path}:{number}: not `key: value`")
        if not found or key == "fault":
            found.append({})
        found[-1][key] = value.removeprefix(" ")
    found = [record for record in found if record]
    for record in found:
        if not {"fault", "file", "line", "with"} <= set(record):
            raise SystemExit(f"{path}: a record lacks a key: {record}")
    names = [record["fault"] for record in found]
    for name in names:
        if names.count(name) > 1:
            raise SystemExit(f"{path}: two records are named {name}")
    return found


def place_of(lines, record):
    """Index of the line that the record means, or None."""
    start = 0
    if record.get("after"):
        before = [i for i, line in enumerate(lines) if line.strip() == record["after"]]
        if len(before) != 1:
            return None
        start = before[0] + 1
    found = [i for i in range(start, len(lines)) if lines[i].strip() == record["line"]]
    if not found or (len(found) > 1 and not record.get("after")):
        return None
    return found[0]


class Test(typing.NamedTuple):
    folder: str    # of tests/
    targets: list  # what must be built; all for a script that names no program
    slow: bool
    script: bool   # runs finished programs


class Copy:
    """The copy of the tree, and what is known about its tests."""

    def __init__(self, options):
        self.options = options
        self.tree = options.work / "tree"
        self.build = self.tree / "build" / "release"
        self.results_file = options.work / "results.json"
        self.listed = {}
        self.state = ""  # of all sources of the copy
        self.known = json.loads(self.results_file.read_text()) if self.results_file.exists() else {"clean": {}, "seconds": {}, "faults": {}}

    def save(self):
        partial = self.results_file.with_suffix(".new")
        partial.write_text(json.dumps(self.known, indent=1))
        partial.replace(self.results_file)

    def command(self, *words, limit=None):
        """(status, output); one that takes too long is ended with all that it started, and has status 1."""
        process = subprocess.Popen([str(word) for word in words], cwd=self.tree, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
                                   start_new_session=True,
                                   env={**os.environ, "GTEST_FAIL_FAST": "1", "CCACHE_BASEDIR": str(self.tree)})
        try:
            text, _ = process.communicate(timeout=limit)
            return process.returncode, text
        except subprocess.TimeoutExpired:
            return 1, ""
        finally:
            if process.poll() is None:
                os.killpg(process.pid, signal.SIGKILL)
                process.communicate()

    def update(self):
        """Makes the copy equal to the tree; files that did not change keep their times."""
        listed = subprocess.run(["git", "-C", ROOT, "ls-files", "-co", "--exclude-standard"], check=True, capture_output=True,
                                text=True).stdout.splitlines()
        wanted = {name for name in listed if (ROOT / name).is_file()}
        for name in wanted:
            source, target = ROOT / name, self.tree / name
            if not target.exists() or target.read_bytes() != source.read_bytes():
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, target)
        for path in [p for p in self.tree.rglob("*") if p.is_file() and "build" not in p.relative_to(self.tree).parts[:1]]:
            if path.relative_to(self.tree).as_posix() not in wanted:
                path.unlink()
        contents = hashlib.sha256()
        for name in sorted(wanted):
            contents.update(name.encode() + b"\0" + (self.tree / name).read_bytes() + b"\0")
        self.state = contents.hexdigest()
        launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
        status, text = self.command("cmake", "--preset", "release", "-DORVANE_WERROR=ON", "-DORVANE_BUILD_BENCH=OFF", *launcher)
        if status:
            raise SystemExit(text)
        self.graph = graph_of(self.tree)

    def make(self, targets):
        return self.command("cmake", "--build", self.build, "-j", self.options.side_by_side, "--target", *targets)

    def tests(self):
        """{name: Test}."""
        if self.listed:
            return self.listed
        buildable = set(re.findall(r"^(?:\.\.\. )?([\w-]+)", self.make(["help"])[1], re.MULTILINE))
        text = subprocess.run(["ctest", "--test-dir", self.build, "--show-only=json-v1"], check=True, capture_output=True,
                              text=True).stdout
        for test in json.loads(text)["tests"]:
            properties = {one["name"]: one["value"] for one in test["properties"]}
            if "lint" in properties.get("LABELS", []):
                continue
            folder = pathlib.Path(properties["WORKING_DIRECTORY"]).relative_to(self.build / "tests").as_posix()
            program = re.search(rf"orvane(?:_program)?_test\({test['name']}\b", (self.tree / "tests" / folder / "CMakeLists.txt").read_text())
            paths = [pathlib.Path(word) for word in test.get("command", ())]
            used = [path.name for path in paths if self.build in path.parents and path.name in buildable]
            self.listed[test["name"]] = Test(folder, [test["name"]] if program else used or ["all"], "slow" in properties["LABELS"],
                                             not program)
        return self.listed

    def passes_without(self, name):
        """Whether a test that killed a fault passes without it, in the copy as it is now. One that does not is left out."""
        known = self.known["clean"].get(name)
        if known and known["state"] == self.state:
            return known["passes"]
        status, text = self.make(self.tests()[name].targets)
        if status:
            raise SystemExit(f"without a fault, {name} does not build:\n{text[-3000:]}")
        passes = self.run(name)
        self.known["clean"][name] = {"state": self.state, "passes": passes}
        if not passes:
            print(f"{name} fails without a fault and is left out", flush=True)
        return passes

    def seconds(self, name, test):
        """What the test takes, or a guess."""
        return self.known["seconds"].get(name, 60 if test.slow else 5)

    def run(self, name):
        """Whether a test passes."""
        limit = max(SHORTEST_LIMIT, 10 * self.seconds(name, self.tests()[name]))
        begin = time.monotonic()
        status, _ = self.command("ctest", "--test-dir", self.build, "-R", f"^{name}$", limit=limit)
        if status == 0:
            self.known["seconds"][name] = time.monotonic() - begin
        return status == 0

    def groups(self, record):
        """Lists of tests in the order in which they are to run."""
        tests = self.tests()
        failing = {name for name, known in self.known["clean"].items() if known["state"] == self.state and not known["passes"]}
        folder = pathlib.PurePosixPath(record["file"]).relative_to("src").parent.as_posix()
        distance = {folder: 0}
        while True:
            further = {upper: max(distance[low] for low in uses if low in distance) + 1
                       for upper, uses in self.graph.items() if upper not in distance and any(low in distance for low in uses)}
            if not further:
                break
            distance.update(further)
        assert all(folder in closure(self.graph, upper) for upper in distance if upper != folder)
        hints = record.get("tests", "").split()

        def rank(name):
            test = tests[name]
            if any(hint in name for hint in hints):
                return -1
            if test.script:
                return 110 if test.targets == ["all"] else 100
            if test.folder in self.graph and test.folder not in distance:
                return None  # below the folder, or beside it: cannot see the fault
            return 50 if self.seconds(name, test) > 20 else distance.get(test.folder, 40)
        ranks = collections.defaultdict(list)
        for name in sorted(set(tests) - failing, key=lambda name: self.seconds(name, tests[name])):
            if rank(name) is not None:
                ranks[rank(name)].append(name)
        return [ranks[key] for key in sorted(ranks)], tests

    def try_fault(self, record):
        path = self.tree / record["file"]
        lines = path.read_text().splitlines(keepends=True) if path.exists() else []
        place = place_of(lines, record)
        if place is None:
            return "not found", ""
        whole = "".join(lines)
        indent = lines[place][:len(lines[place]) - len(lines[place].lstrip())]
        lines[place] = indent + record["with"] + "\n" if record["with"] else ""
        begin = None
        path.write_text(QUIET + "".join(lines))
        try:
            groups, tests = self.groups(record)
            hints = record.get("tests", "").split()
            for group in groups:
                status, text = self.make(sorted({target for name in group for target in tests[name].targets}))
                begin = begin or time.monotonic()  # behind the first build, which may be that of a changed tree
                if status:
                    return "no build", next((line for line in text.splitlines() if "error" in line), "")
                for name in group:
                    if time.monotonic() - begin > self.options.limit:
                        return "unfinished", f"behind the time is {name}"
                    # A test that nobody expects to see it, on a machine with other work, may fail for that.
                    if not self.run(name) and (any(hint in name for hint in hints) or not self.run(name)):
                        return "killed", name
            return "survived", ""
        finally:
            path.write_text(whole)


def report(lists, known):
    for path, records in lists:
        ends = collections.Counter()
        print(f"\n{path.name}")
        for record in records:
            end, words = known["faults"].get(record["fault"], {}).get("end", ["not run", ""])
            ends[end] += 1
            if end != "killed":
                print(f"  {end:10} {record['fault']}  {words}")
        counted = ends["killed"] + ends["survived"]
        share = f", {100 * ends['killed'] / counted:.0f} % of {counted} killed" if counted else ""
        print("  " + ", ".join(f"{count} {end}" for end, count in sorted(ends.items())) + share)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--work", type=lambda text: pathlib.Path(text).resolve(), required=True)
    parser.add_argument("--limit", type=float, default=900, help="seconds for one fault, behind its first build; no further test begins then")
    parser.add_argument("--side-by-side", type=int, default=1, help="compilers at a time")
    parser.add_argument("--only", default="", help="faults whose name or file holds these words")
    parser.add_argument("--again", action="store_true")
    parser.add_argument("--list", action="store_true", help="say only which lines are found in the tree, and what is known")
    parser.add_argument("lists", nargs="+", type=pathlib.Path)
    options = parser.parse_args()
    lists = [(path, records_of(path)) for path in options.lists]
    options.work.mkdir(parents=True, exist_ok=True)
    copy = Copy(options)
    if options.list:
        for _, records in lists:
            for record in records:
                path = ROOT / record["file"]
                if not path.exists() or place_of(path.read_text().splitlines(), record) is None:
                    print(f"not found: {record['fault']} ({record['file']})")
        report(lists, copy.known)
        return 0
    copy.update()
    for _, records in lists:
        for record in records:
            if options.only not in record["fault"] + record["file"]:
                continue
            before = copy.known["faults"].get(record["fault"])
            if before and before["record"] == record and not options.again and before["end"][0] in ("killed", "survived", "equivalent"):
                continue
            begin = time.monotonic()
            end = ("equivalent", record["equivalent"]) if "equivalent" in record else copy.try_fault(record)
            while end[0] == "killed" and not copy.passes_without(end[1]):
                end = copy.try_fault(record)
            copy.known["faults"][record["fault"]] = {"record": record, "end": end}
            copy.save()
            print(f"{end[0]:10} {time.monotonic() - begin:6.0f} s  {record['fault']}  {end[1]}", flush=True)
    report(lists, copy.known)
    return 1 if any(copy.known["faults"].get(r["fault"], {}).get("end", [""])[0] == "survived" for _, rs in lists for r in rs) else 0


if __name__ == "__main__":
    sys.exit(main())
