#!/usr/bin/env python3
"""Flips bits in the memory of running computations: a wrong digit must never come out with status 0.

  flip_bits.py --program build/release/orvane [--constant "pi -algorithm:ramanujan"]... [--mix FILE]
               [--digits 1m-10m] [--sizes 4] [--runs 20] [--flips 65536] [--side-by-side 2] [--seed N]
               [--required 18] [--everything] [--verbose] [-- OPTION...]

`--constant` takes what follows `custom` on the program's command line and may be given several times, `--mix` a file of
such lines (`#` opens a remark) or `all`: both algorithms of Pi and of e, two of Log(2), three of the lemniscate, Sqrt(2),
the golden ratio and Euler's constant. `--digits` is one number, or a range from which `--sizes` sizes for each line are
drawn, even in their logarithms. What follows `--` is handed to every run.

For each line and size a first run without faults gives the digits to compare with and the processor time that it takes.
Every further run is struck once, when it has used a random part of that time; it stands still meanwhile. A strike takes one
random bit out of every `--flips` bytes of the process's working memory: anonymous writable mappings of 1 MiB and more,
without the stacks of threads, and of those only pages in use. A single bit lands more often than not in memory that is free
or used up at that moment, where it harms nobody; a strike of one bit in 64 KiB hits live data at every moment but the very
last, so that the number of runs that end by a check means something. `--flips 0` takes one single bit per run,
`--everything` adds the heap, stacks and small mappings, where a changed pointer may well crash the process.

Ends of a run: "check" (status 1 and the words of a check), "right" (status 0, the digits of the first run), "other"
(status 1, other words), "crash" (a signal), "hang" (ten times the first run's time), "WRONG" (status 0, other digits). For
each "WRONG" the report says when and where it was struck and what the threads were doing: return addresses found on their
stacks, so a name may be left over from an earlier call. Fails on a single "WRONG" or "hang", and when fewer than
`--required` runs end by a check (by default nine in ten; for a single bit none)."""
import argparse
import bisect
import concurrent.futures
import dataclasses
import functools
import hashlib
import os
import pathlib
import random
import re
import shlex
import signal
import struct
import subprocess
import sys
import tempfile
import threading
import time

SMALLEST = 1 << 20
PAGE = os.sysconf("SC_PAGE_SIZE")
STACK_BYTES = 16384
ALL = ["pi -algorithm:chudnovsky", "pi -algorithm:ramanujan", "e -algorithm:exp(1)", "e -algorithm:exp(-1)", "sqrt:2", "phi",
       "log:2", "log:2 -algorithm:machin-primary", "zeta3", "catalan", "lemniscate", "lemniscate -algorithm:gauss",
       "lemniscate -algorithm:agm-pi", "gamma"]

CHECKS = [
    "Modular Redundancy Check Failed",
    "Checksum Mismatch. Multiplication Failed.",
    "Checksum Mismatch. Division failed.",
    "Checksum Mismatch. Inverse root failed.",
    "Checksum Mismatch. Square root failed.",
    "Checksum Mismatch. Arithmetic mean failed.",
    "Checksum Mismatch. Logarithm failed.",
    "The parts of a product disagree.",
    "Residual is too large.",
    "Coefficient is too large.",
    " from an integer; limit: ",
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


@dataclasses.dataclass
class Case:
    """A computation, and what it gives when nothing strikes it."""
    words: str
    digits: int
    seconds: float = 0
    work: float = 0
    files: dict = None
    printed: list = None


@dataclasses.dataclass
class Outcome:
    case: Case
    moment: float  # as a part of the case's processor time
    end: str = ""
    words: str = ""
    stage: str = ""
    places: list = dataclasses.field(default_factory=list)
    stacks: list = dataclasses.field(default_factory=list)
    text: str = ""


def start(options, case, folder):
    command = [options.program, "pause:-2", "priority:0", "colors:0", "skip-warnings", "custom", *shlex.split(case.words),
               f"-dec:{case.digits}", "-o", str(folder), *options.rest]
    with open(pathlib.Path(folder) / "log", "wb") as log:
        return subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT)


def log_of(folder):
    return (pathlib.Path(folder) / "log").read_text(errors="replace")


def digest(folder):
    """Names and contents of the digit files."""
    names = {}
    for path in sorted(pathlib.Path(folder).iterdir()):
        if path.name != "log":
            with path.open("rb") as file:
                names[path.name] = hashlib.file_digest(file, "sha256").hexdigest()
    return names


def printed_results(folder):
    """The hashes and counts of digits that the run printed."""
    return re.findall(r"^(?:Dec|Hex|SHA256)\S* (?:Hash|Counts|\().*$", log_of(folder), re.MULTILINE)


def run_clean(options, case):
    with tempfile.TemporaryDirectory() as folder:
        begin = time.monotonic()
        process = start(options, case, folder)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            raise SystemExit(log_of(folder))
        case.seconds, case.work = time.monotonic() - begin, usage.ru_utime + usage.ru_stime
        case.files, case.printed = digest(folder), printed_results(folder)
    if not case.printed:
        raise SystemExit("the run without faults printed no results to compare with")


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


def flip(pid, options, source, outcome):
    """Flips the bits of a strike in a process that stands still."""
    spans = mappings(pid, options.everything)
    pages = [page for span in spans for page in resident_pages(pid, *span)]
    if not pages:
        return
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
            number, (begin, end) = next((i, s) for i, s in enumerate(spans) if s[0] <= page < s[1])
            outcome.places.append(f"mapping {number} of {len(spans)}, byte {at - begin:,} of {end - begin:,} "
                                  f"({100 * (at - begin) / (end - begin):.1f} %), bit {bit}")


@functools.lru_cache
def symbols(program):
    listed = subprocess.run(["nm", "-C", "--defined-only", program], capture_output=True, text=True, check=False).stdout
    found = sorted((int(line[:16], 16), line[19:]) for line in listed.splitlines() if line[17:18] in "tTwW")
    return [at for at, _ in found], [name for _, name in found]


def stacks(pid, program):
    """For each thread of a process that stands still, the functions whose addresses lie on its stack, innermost first."""
    name, found = os.path.realpath(program), []
    lines = [line.split(None, 5) for line in pathlib.Path(f"/proc/{pid}/maps").read_text().splitlines()]
    own = [tuple(int(x, 16) for x in fields[0].split("-")) for fields in lines if len(fields) > 5 and fields[5] == name]
    code = [tuple(int(x, 16) for x in fields[0].split("-")) for fields in lines
            if len(fields) > 5 and fields[5] == name and "x" in fields[1]]
    addresses, names = symbols(program)
    if not code or not addresses:
        return []
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        fields = (task / "syscall").read_text().split()
        if len(fields) < 3:
            continue
        stack, counter = int(fields[-2], 16), int(fields[-1], 16)
        with open(f"/proc/{pid}/mem", "rb", buffering=0) as memory:
            words = [counter]
            for at in range(stack, stack + STACK_BYTES, PAGE - stack % PAGE if stack % PAGE else PAGE):
                try:
                    memory.seek(at)
                    block = memory.read(PAGE - at % PAGE)
                except OSError:
                    break
                words += [word for (word,) in struct.iter_unpack("<Q", block[:len(block) // 8 * 8])]
        calls = [names[bisect.bisect(addresses, word - own[0][0]) - 1] for word in words
                 if any(begin <= word < end for begin, end in code)]
        found.append([call for call, last in zip(calls, [None, *calls]) if call != last])
    return found


def stage(folder):
    """Where the run was: the last stage it had announced."""
    lines = log_of(folder).replace("\r", "\n").splitlines()
    named = [line.strip() for line in lines if re.match(r"^[A-Z][A-Za-z ()-]+(\.\.\.|:)", line.strip())]
    return named[-1].split("...")[0].split(":")[0] if named else "start"


def classify(process, folder, case):
    text = log_of(folder)
    if process.returncode == 0:
        same = digest(folder) == case.files and printed_results(folder) == case.printed
        return ("right", "") if same else ("WRONG", "")
    if process.returncode < 0:
        return "crash", signal.Signals(-process.returncode).name
    words = [check for check in CHECKS if check in text]
    if words:
        return "check", words[0]
    lines = [line for line in text.splitlines() if line.strip()]
    return "other", " | ".join(lines[-3:])


def stop(pid):
    """Stops a process and returns when all of its threads stand still."""
    os.kill(pid, signal.SIGSTOP)
    states = lambda: [(task / "stat").read_text().rsplit(")", 1)[1].split()[0]
                      for task in pathlib.Path(f"/proc/{pid}/task").iterdir()]
    while any(state not in "TZX" for state in states()):
        time.sleep(0.0001)


def processor_seconds(pid):
    """Of all its threads so far. The clock is that of clock_getcpuclockid(), which Python does not wrap."""
    return time.clock_gettime((~pid << 3) | 2)


def run_once(options, source, case):
    """One run, struck at a random moment; None when it ended before, or when there was nothing to strike."""
    outcome = Outcome(case, source.uniform(options.first, options.last))
    with tempfile.TemporaryDirectory() as folder:
        process = start(options, case, folder)
        try:
            while process.poll() is None and processor_seconds(process.pid) < outcome.moment * case.work:
                time.sleep(0.0005)
            if process.poll() is not None:
                return None
            stop(process.pid)
            try:
                outcome.stage = stage(folder)
                outcome.stacks = stacks(process.pid, options.program)
                flip(process.pid, options, source, outcome)
            finally:
                os.kill(process.pid, signal.SIGCONT)
            if not outcome.places:
                return None
            try:
                process.wait(10 * case.seconds + 60)
                outcome.end, outcome.words = classify(process, folder, case)
            except subprocess.TimeoutExpired:
                outcome.end = "hang"
        except (ProcessLookupError, FileNotFoundError):
            return None
        finally:
            if process.poll() is None:
                process.kill()
                process.wait()
        outcome.text = log_of(folder)
        return outcome


def number_of(text):
    factors = {"k": 10**3, "m": 10**6, "b": 10**9}
    return int(text[:-1]) * factors[text[-1]] if text[-1] in factors else int(text)


def cases_of(options, source):
    lines = list(options.constant)
    if options.mix == "all":
        lines += ALL
    elif options.mix:
        lines += [line for line in pathlib.Path(options.mix).read_text().splitlines() if line and not line.startswith("#")]
    low, _, high = options.digits.partition("-")
    low, high = number_of(low), number_of(high or low)
    sizes = lambda: {low} if low == high else {round(low * (high / low) ** source.random()) for _ in range(options.sizes)}
    return [Case(line, digits) for line in lines or ["pi"] for digits in sorted(sizes())]


def report(outcomes, options):
    print("end    runs")
    ends = {}
    for outcome in outcomes:
        ends.setdefault(outcome.end, []).append(outcome)
    for end, some in sorted(ends.items()):
        print(f"{end:6} {len(some):4}")
    print("\nruns  words")
    words = [outcome.words for outcome in outcomes if outcome.words]
    for one in sorted(set(words), key=words.count, reverse=True):
        print(f"{words.count(one):4}  {one}")
    print("\nruns check  stage")
    stages = [outcome.stage for outcome in outcomes]
    for one in sorted(set(stages), key=stages.count, reverse=True):
        print(f"{stages.count(one):4}  {sum(o.stage == one and o.end == 'check' for o in outcomes):4}  {one}")
    for outcome in ends.get("WRONG", []) + ends.get("hang", []):
        print(f"\n{outcome.end}: {outcome.case.words}, {outcome.case.digits} digits, struck at {100 * outcome.moment:.1f} % "
              f"in {outcome.stage}")
        print("  " + "\n  ".join(outcome.places[:8]))
        for calls in outcome.stacks:
            print("  thread: " + "\n      in: ".join(calls[:24]))
    required = options.required
    if required is None:
        required = 0 if options.flips == 0 else len(outcomes) * 9 // 10
    return not ends.get("WRONG") and not ends.get("hang") and len(ends.get("check", [])) >= required


def main():
    arguments = sys.argv[1:]
    rest = []
    if "--" in arguments:
        at = arguments.index("--")
        arguments, rest = arguments[:at], arguments[at + 1:]
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", required=True)
    parser.add_argument("--constant", action="append", default=[])
    parser.add_argument("--mix")
    parser.add_argument("--runs", type=int, default=20)
    parser.add_argument("--digits", default="25m")
    parser.add_argument("--sizes", type=int, default=4)
    parser.add_argument("--flips", type=int, default=65536)
    parser.add_argument("--side-by-side", type=int, default=1)
    parser.add_argument("--required", type=int)
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 32))
    parser.add_argument("--first", type=float, default=0.02, help="earliest moment, as a part of the run")
    parser.add_argument("--last", type=float, default=0.95)
    parser.add_argument("--everything", action="store_true")
    parser.add_argument("--verbose", action="store_true", help="print what a run that no check ended printed")
    options = parser.parse_args(arguments)
    options.rest = rest

    print(f"seed {options.seed}", flush=True)
    cases = cases_of(options, random.Random(options.seed))
    for case in cases:
        run_clean(options, case)
        print(f"{case.words}, {case.digits} digits: {case.seconds:.2f} s ({case.work:.2f} s of processor time) without faults",
              flush=True)

    printing = threading.Lock()

    def run(number):
        source, case, outcome = random.Random(options.seed + number + 1), cases[number % len(cases)], None
        while outcome is None:
            outcome = run_once(options, source, case)
        with printing:
            print(f"{number:4} {case.words:24} {case.digits:9} at {100 * outcome.moment:4.1f} % in {outcome.stage:24} "
                  f"{len(outcome.places):5} bits  {outcome.end:6} {outcome.words}", flush=True)
            if options.verbose and outcome.end != "check":
                print(outcome.text)
        return outcome

    with concurrent.futures.ThreadPoolExecutor(options.side_by_side) as pool:
        outcomes = list(pool.map(run, range(options.runs)))
    if not report(outcomes, options):
        raise SystemExit("FAILED")


if __name__ == "__main__":
    main()
