#!/usr/bin/env python3
"""Runs the examples of README and of the digit viewer's page as they are printed, in a folder that looks like a fresh
checkout after a build.

  readme_examples.py --program build/release/orvane

An example is a line "$ COMMAND" of an indented block; what follows it in the block must come out, "..." standing for any
lines. Times and dates may differ. The commands of README's table of constants run at 10,000 digits, each with all the algorithms
that stand beside it. All get `priority:0`: as root they would keep the machine from its other work."""
import argparse
import pathlib
import re
import resource
import shlex
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
MOST_SECONDS = 20  # of the processor, in all
VARYING = [(r"\d+\.\d+ seconds", "<seconds>"), (r"\d{8}-\d{6}", "<stamp>"), (r" +", " ")]


def plain(text):
    """The lines that are compared: without empty ones, blanks at the ends and what varies."""
    for pattern, name in VARYING:
        text = re.sub(pattern, name, text)
    return [line.strip() for line in text.splitlines() if line.strip()]


def missing_line(wanted, seen):
    """The first line of `wanted` that does not come out in its place; none if all do."""
    at, anywhere = 0, False
    for line in wanted:
        if line == "...":
            anywhere = True
            continue
        found = next((i for i in range(at, len(seen)) if seen[i] == line), None)
        if found is None or (not anywhere and found != at):
            return line
        at, anywhere = found + 1, False
    return None


def blocks(text):
    """(the paragraph in front, the text) of every indented block."""
    for match in re.finditer(r"((?:^.+\n)+)\n+((?:(?:    .*)?\n)+)", text, re.M):
        yield match[1], re.sub(r"^    ", "", match[2], flags=re.M)


class Checkout:
    def __init__(self, folder, program):
        self.folder, self.faults = pathlib.Path(folder), []
        (self.folder / "orvane").symlink_to(program.resolve())
        (self.folder / "Digits").symlink_to(ROOT / "Digits")

    def run(self, command, wanted=()):
        words = shlex.split(command)
        done = subprocess.run([self.folder / words[0], "priority:0", *words[1:]], cwd=self.folder, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=120)
        missing = missing_line(wanted, plain(done.stdout))
        if done.returncode or missing:
            self.faults.append(f"{command}\nended with {done.returncode}" + (f", without: {missing}" if missing else "") +
                               f"\n{done.stdout}{done.stderr}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", type=pathlib.Path, required=True)
    options = parser.parse_args()
    readme, viewer = ((ROOT / name).read_text() for name in ("README.md", "docs/digit-viewer.md"))
    examples = rows = 0
    with tempfile.TemporaryDirectory() as folder:
        checkout = Checkout(folder, options.program)
        for paragraph, block in [*blocks(readme), *blocks(viewer)]:
            name = re.search(r"`([\w-]+\.cfg)`", paragraph)
            if name and block.startswith("{"):
                (checkout.folder / name[1]).write_text(block.split("\n$ ")[0])
            for example in re.split(r"^\$ ", block, flags=re.M)[1:]:
                command, _, output = example.partition("\n")
                checkout.run(command, plain(output))
                examples += 1
        for command, algorithms in re.findall(r"^\|[^|]*\| `(\./orvane custom [^`]*)` \|([^|]*)\|$", readme, re.M):
            names = re.findall(r"`([^`]+)`", algorithms.split(";")[0])
            endings = ["", *(name for name in names if name.startswith("-"))]
            for name in (name + ending for name in names if not name.startswith("-") for ending in endings):
                checkout.run(command.replace("-dec:10m", "-dec:10k") + f" -od:0 '-algorithm:{name}'")
                rows += 1
    spent = resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime
    if spent > MOST_SECONDS:
        checkout.faults.append(f"the examples took {spent:.1f} s of processor time, more than {MOST_SECONDS}")
    if examples < 7 or rows < 15:
        checkout.faults.append(f"only {examples} examples and {rows} commands of the table were found")
    return checkout.faults


if __name__ == "__main__":
    found = main()
    print("\n\n".join(found))
    sys.exit(1 if found else 0)
