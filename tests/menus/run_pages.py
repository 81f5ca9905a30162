#!/usr/bin/env python3
"""Drives the program by pages: piped input, and the screen it must show. README.md tells the form of a page.

  run_pages.py --program build/release/orvane [--only NAME...] [--update] [--cuts] [--jobs N]

Without a further switch every page is run and compared. `--update` writes the screen that is seen into the pages for
review; lines with placeholders that still fit stay as they are. `--cuts` ends the input after each line and within it
instead: the program must then end within a second with status 1. Where a cut leaves a menu on the screen, the next line
of the input is the choice; over all pages every entry of every menu must be chosen."""
import argparse
import concurrent.futures
import fnmatch
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

sys.dont_write_bytecode = True  # the sources' folder stays as it is
import entries as menu_entries  # noqa: E402
import page as pages  # noqa: E402

FIXED = ["pause:-2", "priority:0", "skip-warnings"]
CUT_SECONDS = 1.0
COLUMNS = 80
# A process that is started while a copy is being written holds it open, and the copy could not be run.
COPY_OR_START = threading.Lock()


class Place:
    """A fresh folder with a copy of the program, so that files beside the program belong to one page."""

    def __init__(self, program, root):
        self.root = pathlib.Path(root)
        self.work = self.root / "work"
        self.program = self.root / "program" / program.name
        self.work.mkdir(parents=True)
        self.program.parent.mkdir()
        with COPY_OR_START:
            shutil.copy2(program, self.program)

    def create(self, page, before_run):
        for name, text, run in page.files:
            if run != before_run:
                continue
            path = self.work / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text, newline="")

    def start(self, run, screen=subprocess.PIPE):
        arguments = [word.replace("<folder>", str(self.work)) for word in run.arguments]
        environment = {**os.environ, "LC_ALL": "C", "TZ": "UTC", **run.environment}
        given = {word.split(":", 1)[0] for word in arguments}
        fixed = [word for word in FIXED if word.split(":", 1)[0] not in given]
        with COPY_OR_START:
            return subprocess.Popen([self.program, *fixed, *arguments], cwd=self.work, env=environment,
                                    stdin=subprocess.PIPE, stdout=screen, stderr=subprocess.STDOUT)

    def input_bytes(self, run):
        return "".join(line.replace("<folder>", str(self.work)) + "\n" for line in run.input).encode()


def finish(process, data, seconds):
    """Feeds the input and waits. Returns (status, output, whether it had to be killed)."""
    try:
        output, _ = process.communicate(data, timeout=seconds)
        return process.returncode, output, False
    except subprocess.TimeoutExpired:
        process.kill()
        output, _ = process.communicate()
        return None, output, True


def finish_interrupted(process, data, seconds, text):
    """The same, with one SIGINT as soon as the screen shows `text`."""
    killer = threading.Timer(seconds, process.kill)
    killer.start()
    try:
        process.stdin.write(data)
        process.stdin.flush()
    except BrokenPipeError:
        pass  # it has ended, and its status will tell
    output, sent = b"", False
    while chunk := os.read(process.stdout.fileno(), 65536):
        output += chunk
        if not sent and text.encode() in output:
            process.send_signal(signal.SIGINT)
            sent = True
    process.stdin.close()
    status = process.wait()
    killed = not killer.is_alive()
    killer.cancel()
    return (None if killed else status), output, killed


def named(names, pattern):
    """The names that fit, folder by folder: a '*' does not stand for a '/'."""
    parts = pattern.split("/")
    return [name for name in names if name.count("/") == len(parts) - 1 and
            all(fnmatch.fnmatchcase(*pair) for pair in zip(name.split("/"), parts))]


def check_files(place, run, faults):
    names = [str(path.relative_to(place.work)) for path in sorted(place.work.rglob("*"))]
    for pattern, lines, crlf in run.expected_files:
        found = named(names, pattern)
        if len(found) != 1:
            faults.append(f"{len(found)} files are called '{pattern}', not one; there are: {', '.join(names)}")
            continue
        data = (place.work / found[0]).read_bytes()
        if crlf:
            if data.count(b"\n") != data.count(b"\r\n"):
                faults.append(f"'{found[0]}' has lines that do not end in CR LF")
            data = data.replace(b"\r\n", b"\n")
        seen = pages.shown(data, place.work)
        if not pages.matches(lines, seen):
            faults.append(pages.difference(lines, seen, found[0]))
    for pattern in run.absent_files:
        faults += [f"'{name}' was written" for name in named(names, pattern)]


def wide_lines(screen):
    """Lines that a terminal of 80 columns would break. Names of files and records of a run are as long as they are;
    a prompt ends its line where somebody types."""
    return [f"{len(line)} columns: {line}" for line in (re.sub("<esc>[^m]*m", "", line) for line in screen)
            if len(re.sub(r"^((option|offset): |.* = )+", "", line)) > COLUMNS
            and not re.search(r"<folder>|/orvane-page-|<cr>|^SHA256-|^Operating System: |^Validation File: |^(Dec|Hex) Counts: |^ +(Flags|Serial Number): |^Results File: |, cores ", line)]


def play(page, program, update):
    """Runs a page. Returns its faults, as texts."""
    faults, screens = [], []
    with tempfile.TemporaryDirectory(prefix="orvane-page-") as root:
        place = Place(program, root)
        for number, run in enumerate(page.runs):
            place.create(page, number)
            process = place.start(run)
            data = place.input_bytes(run)
            if run.interrupt:
                status, output, killed = finish_interrupted(process, data, run.timeout, run.interrupt)
            else:
                status, output, killed = finish(process, data, run.timeout)
            seen = pages.shown(output, place.work)
            expected = run.screen or []
            screens.append(pages.align(expected, seen) if expected else pages.without_processor_check(seen))
            if killed:
                faults.append(f"still running after {run.timeout} s; the screen's end:\n" + "\n".join(seen[-20:]))
            elif status != run.status:
                faults.append(f"line {run.line_number}: status {status}, expected {run.status}")
            if not update and not pages.matches(expected, seen):
                faults.append(pages.difference(expected, seen, "screen"))
            check_files(place, run, faults)
            faults += wide_lines(seen)
    if update:
        page.write_screens(screens)
    return faults


def cuts_of(place, run):
    """(name of the cut, input, the line that would follow) for every place at which the input may end; no line behind
    a cut within one."""
    data = place.input_bytes(run)
    lines = data.splitlines(keepends=True)
    count = len(lines) if run.cuts is None else run.cuts
    ends = 0
    for number, line in enumerate(lines):
        if number > count or number >= len(lines):
            break
        yield f"before input line {number + 1}", data[:ends], line.decode().rstrip("\n")
        # A part of the last line answers the last question, as the whole line does.
        if number < min(count, len(lines) - 1) and len(line) > 2:
            middle = ends + len(line) // 2
            yield f"within input line {number + 1}", data[:middle], None
        ends += len(line)


def seconds_in_queue(pid):
    """How long the process could have run, but another one had the processor."""
    try:
        return int(pathlib.Path(f"/proc/{pid}/schedstat").read_text().split()[1]) * 1e-9
    except FileNotFoundError:
        return 0.0  # a kernel that does not count it


def finish_in_time(place, run, data):
    """Feeds the input and waits for the end. Returns (status, output, seconds), without the time in which other
    processes had the processor; a process that needs too long is killed."""
    with tempfile.TemporaryFile() as screen:
        start = time.monotonic()
        process = place.start(run, screen)
        try:
            process.stdin.write(data)
            process.stdin.close()
        except BrokenPipeError:
            pass  # it has ended
        while True:
            spent = time.monotonic() - start - seconds_in_queue(process.pid)
            ended = os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOHANG | os.WNOWAIT)
            if ended or spent > CUT_SECONDS:
                break
            time.sleep(0.002)
        if not ended:
            process.kill()
        process.wait()
        screen.seek(0)
        return process.returncode, screen.read(), spent


def run_cut(page, number, run, program, original, name, data):
    """Plays one cut in a copy of the folder. Returns a fault, or None, and the screen as lines."""
    with tempfile.TemporaryDirectory(prefix="orvane-cut-") as root:
        place = Place(program, root)
        shutil.copytree(original, place.work, dirs_exist_ok=True)
        # The input may name the page's folder, which stands under another name here.
        data = data.replace(str(original).encode(), str(place.work).encode())
        status, output, spent = finish_in_time(place, run, data)
    screen = pages.shown(output, place.work)
    if spent <= CUT_SECONDS and status == 1:
        return None, screen
    ending = f"status {status}, expected 1" if spent <= CUT_SECONDS else f"still running after {spent:.2f} s"
    return (f"run {number + 1}, end of input {name}: {ending}; the screen's end:\n" +
            "\n".join(screen[-12:])), screen


def play_cuts(page, program, entries):
    faults, cuts = [], 0
    with tempfile.TemporaryDirectory(prefix="orvane-page-") as root:
        place = Place(program, root)
        for number, run in enumerate(page.runs):
            place.create(page, number)
            questions = []
            for name, data, answer in cuts_of(place, run):
                cuts += 1
                fault, screen = run_cut(page, number, run, program, place.work, name, data)
                if fault:
                    faults.append(fault)
                if answer is not None:
                    questions.append((screen, answer))
            entries.add(page.name, questions)
            if number + 1 < len(page.runs):
                finish(place.start(run), place.input_bytes(run), run.timeout)
    return faults, cuts


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", required=True, type=pathlib.Path)
    parser.add_argument("--pages", type=pathlib.Path, default=pathlib.Path(__file__).parent)
    parser.add_argument("--only", nargs="+", metavar="NAME", help="pages by name; * and ? as in a shell")
    parser.add_argument("--update", action="store_true")
    parser.add_argument("--cuts", action="store_true")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() or 1)
    arguments = parser.parse_args()
    program = arguments.program.resolve()

    chosen = [pages.Page(path) for path in sorted(arguments.pages.glob("*.page"))
              if not arguments.only or any(fnmatch.fnmatch(path.stem, name) for name in arguments.only)]
    if not chosen:
        sys.exit("run_pages.py: there is no such page")
    failed = total_cuts = unchosen = 0
    entries = menu_entries.Entries()
    with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
        if arguments.cuts:
            results = pool.map(lambda page: play_cuts(page, program, entries), chosen)
        else:
            results = ((faults, 0) for faults in pool.map(lambda page: play(page, program, arguments.update), chosen))
        for page, (faults, cuts) in zip(chosen, results):
            total_cuts += cuts
            failed += bool(faults)
            print(f"{'FAILED' if faults else 'passed'}  {page.name}" + (f"  ({cuts} cuts)" if cuts else ""))
            for fault in faults:
                print("    " + fault.replace("\n", "\n    "))
    if arguments.cuts and not arguments.only:
        for fault in entries.faults():
            unchosen += 1
            print(f"FAILED  {fault}")
    counts = f", {total_cuts} cuts, {unchosen} entries not chosen" if arguments.cuts else ""
    print(f"{len(chosen)} pages, {failed} failed{counts}")
    return 1 if failed or unchosen else 0


if __name__ == "__main__":
    sys.exit(main())
