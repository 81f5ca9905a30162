#!/usr/bin/env python3
"""Flips bits in the memory of running computations: a wrong digit must never come out with status 0.

  flip_bits.py --program build/release/orvane [--runs 20] [--digits 25000000] [--flips 65536] [--seed N]
               [--required 18] [--everything] [--verbose] [-- OPTION...]

A first run without faults gives the digits to compare with and the processor time that it takes. Every further
run is struck once, when it has used a random part of that time; it stands still meanwhile. A strike takes one random bit out of every `--flips` bytes of the
process's working memory: anonymous writable mappings of 1 MiB and more, without the stacks of threads, and of
those only pages in use. A single bit lands more often than not in memory that is free or used up at that moment,
where it harms nobody; a strike of one bit in 64 KiB hits live data at every moment but the very last, so that the
number of runs that end by a check means something. `--flips 0` takes one single bit a run, `--everything` adds
the heap, stacks and small mappings, where a changed pointer may well crash the process.

Ends of a run: "check" (status 1 and the words of a check), "right" (status 0, the digits of the first run),
"other" (status 1, other words), "crash" (a signal), "hang" (ten times the first run's time), "WRONG" (status 0,
other digits). Fails on a single "WRONG" or "hang", and when fewer than `--required` runs end by a check (by default
nine in ten; for a single bit none). What follows `--` is handed to the program."""
import argparse
import hashlib
import os
import pathlib
import random
import re
import signal
import struct
import subprocess
import sys
import tempfile
import time

SMALLEST = 1 << 20
PAGE = os.sysconf("SC_PAGE_SIZE")

CHECKS = [
    "Modular Redundancy Check Failed",
    "Checksum Mismatch. Multiplication Failed.",
    "Checksum Mismatch. Division failed.",
    "Residual is too large.",
    "Coefficient is too large.",
    "Convergence Failure",
    "Mismatching block residuals.",
    "Power Hash Mismatch",
    "Mismatching exponents.",
    "Overlap Mismatch",
    "Base Conversion Failed: Checksum Mismatch",
    "Data Corruption Detected: Checksum Mismatch",
    "Digit output failed. Metadata cross-check doesn't match.",
    "Invalid Digit",
    "Invalid decimal digit in first digits.",
    "Invalid hexadecimal digit in first digits.",
    "A decimal place was not found",
]


def command(options, folder):
    return [options.program, "pause:-2", "priority:0", "colors:0", "skip-warnings", "custom", "pi",
            f"-dec:{options.digits}", "-o", str(folder), *options.rest]


def start(options, folder):
    log = open(pathlib.Path(folder) / "log", "wb")
    return subprocess.Popen(command(options, folder), stdin=subprocess.DEVNULL, stdout=log,
                            stderr=subprocess.STDOUT)


def digest(folder):
    """Names and contents of the digit files."""
    names = {}
    for path in sorted(pathlib.Path(folder).iterdir()):
        if path.name != "log":
            with path.open("rb") as file:
                names[path.name] = hashlib.sha256(file.read()).hexdigest()
    return names


def printed_results(folder):
    """The hashes and counts of digits that the run printed."""
    text = (pathlib.Path(folder) / "log").read_text(errors="replace")
    return re.findall(r"^(?:Dec|Hex|SHA256)\S* (?:Hash|Counts|\().*$", text, re.MULTILINE)


def mappings(pid, everything):
    """[begin, end) of the mappings to strike."""
    found = []
    fence = None
    for line in pathlib.Path(f"/proc/{pid}/maps").read_text().splitlines():
        fields = line.split(None, 5)
        begin, end = (int(x, 16) for x in fields[0].split("-"))
        writable, name = fields[1].startswith("rw"), fields[5] if len(fields) > 5 else ""
        behind_fence = fence == begin  # a stack lies behind a page that nobody may touch
        if fields[1].startswith("---"):
            fence = end
        if not writable or name.startswith(("[vvar", "[vdso", "[vsyscall")):
            continue
        if everything or (not name and end - begin >= SMALLEST and not behind_fence):
            found.append((begin, end))
    return found


def resident_pages(pid, begin, end):
    """Addresses of the pages of a mapping that are in memory."""
    with open(f"/proc/{pid}/pagemap", "rb", buffering=0) as file:
        file.seek(begin // PAGE * 8)
        entries = file.read((end - begin) // PAGE * 8)
    return [begin + i * PAGE for i, (entry,) in enumerate(struct.iter_unpack("<Q", entries)) if entry >> 63]


def strike(pid, options, source):
    """Flips the bits, all at one moment of the run; returns how many."""
    os.kill(pid, signal.SIGSTOP)
    try:
        return flip(pid, options, source)
    finally:
        os.kill(pid, signal.SIGCONT)


def flip(pid, options, source):
    pages = [page for span in mappings(pid, options.everything) for page in resident_pages(pid, *span)]
    if not pages:
        return 0
    if options.flips == 0:
        chosen = [source.choice(pages)]
    else:
        group = max(1, options.flips // PAGE)
        chosen = [source.choice(pages[i:i + group]) for i in range(0, len(pages), group)]
    with open(f"/proc/{pid}/mem", "r+b", buffering=0) as memory:
        for page in chosen:
            at, bit = page + source.randrange(PAGE), source.randrange(8)
            memory.seek(at)
            byte = memory.read(1)[0]
            memory.seek(at)
            memory.write(bytes([byte ^ 1 << bit]))
    return len(chosen)


def stage(folder):
    """Where the run was: the last stage it had announced."""
    lines = (pathlib.Path(folder) / "log").read_text(errors="replace").replace("\r", "\n").splitlines()
    named = [line.strip() for line in lines if re.match(r"^[A-Z][A-Za-z ()-]+(\.\.\.|:)", line.strip())]
    return named[-1].split("...")[0].split(":")[0] if named else "start"


def classify(process, folder, clean, clean_results):
    text = (pathlib.Path(folder) / "log").read_text(errors="replace")
    if process.returncode == 0:
        same = digest(folder) == clean and printed_results(folder) == clean_results
        return ("right", "") if same else ("WRONG", "")
    if process.returncode < 0:
        return "crash", signal.Signals(-process.returncode).name
    words = [check for check in CHECKS if check in text]
    if words:
        return "check", words[0]
    lines = [line for line in text.splitlines() if line.strip()]
    return "other", " | ".join(lines[-3:])


def processor_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def run_once(options, source, moment, limit, clean, clean_results):
    """One run, struck when it has used `moment` seconds of processor time; None when it ended before."""
    with tempfile.TemporaryDirectory() as folder:
        process = start(options, folder)
        try:
            while process.poll() is None and processor_seconds(process.pid) < moment:
                time.sleep(0.002)
            if process.poll() is not None:
                return None
            struck_in = stage(folder)
            flipped = strike(process.pid, options, source)
            try:
                process.wait(limit)
            except subprocess.TimeoutExpired:
                return "hang", "", struck_in, flipped, ""
        finally:
            if process.poll() is None:
                process.kill()
                process.wait()
        end, words = classify(process, folder, clean, clean_results)
        text = (pathlib.Path(folder) / "log").read_text(errors="replace")
        return end, words, struck_in, flipped, text


def main():
    arguments = sys.argv[1:]
    rest = []
    if "--" in arguments:
        at = arguments.index("--")
        arguments, rest = arguments[:at], arguments[at + 1:]
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", required=True)
    parser.add_argument("--runs", type=int, default=20)
    parser.add_argument("--digits", type=int, default=25000000)
    parser.add_argument("--flips", type=int, default=65536)
    parser.add_argument("--required", type=int)
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 32))
    parser.add_argument("--first", type=float, default=0.02, help="earliest moment, as a part of the run")
    parser.add_argument("--last", type=float, default=0.95)
    parser.add_argument("--everything", action="store_true")
    parser.add_argument("--verbose", action="store_true", help="print what a run that no check ended printed")
    options = parser.parse_args(arguments)
    options.rest = rest
    if options.required is None:
        options.required = 0 if options.flips == 0 else options.runs * 9 // 10
    source = random.Random(options.seed)

    with tempfile.TemporaryDirectory() as folder:
        begin, used_before = time.monotonic(), os.times()
        process = start(options, folder)
        if process.wait() != 0:
            raise SystemExit((pathlib.Path(folder) / "log").read_text(errors="replace"))
        seconds, used = time.monotonic() - begin, os.times()
        work = used.children_user + used.children_system - used_before.children_user - used_before.children_system
        clean, clean_results = digest(folder), printed_results(folder)
    if not clean or not clean_results:
        raise SystemExit("the run without faults left no digits to compare with")
    print(f"{options.digits} digits, {seconds:.1f} s ({work:.1f} s of processor time) without faults, seed "
          f"{options.seed}", flush=True)

    ends, words_of = {}, {}
    for number in range(options.runs):
        outcome = None
        while outcome is None:
            moment = work * source.uniform(options.first, options.last)
            outcome = run_once(options, source, moment, 10 * seconds + 60, clean, clean_results)
        end, words, struck_in, flipped, text = outcome
        ends[end] = ends.get(end, 0) + 1
        if words:
            words_of[words] = words_of.get(words, 0) + 1
        print(f"{number:3} at {moment:6.1f} s in {struck_in:28} {flipped:6} bits  {end:6} {words}", flush=True)
        if options.verbose and end != "check":
            print(text)
    print(", ".join(f"{count} {end}" for end, count in sorted(ends.items())))
    for words, count in sorted(words_of.items(), key=lambda item: -item[1]):
        print(f"{count:4} {words}")
    if ends.get("WRONG", 0) or ends.get("hang", 0) or ends.get("check", 0) < options.required:
        raise SystemExit("FAILED")


if __name__ == "__main__":
    main()
