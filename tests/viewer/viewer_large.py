#!/usr/bin/env python3
"""The digit viewer on a file as large as wished: every choice, its memory and its speed.

    python3 viewer_large.py --program build/release/orvane [--digits 1000000000] [--folder .]

Makes a file of pseudo-random digits, views, counts, compresses, recompresses and extracts it, and fails when hash, counts
or bytes are not those of the file, or when the program needs 64 MiB or more. Needs twice the digits in bytes of room.
"""
import argparse
import os
import pathlib
import random
import re
import subprocess
import sys
import tempfile
import time

MODULUS = 2**61 - 1
LIMIT_KIB = 64 * 1024
CHUNK = 1000  # digits that become one integer at a time
PIECE = 1_000_000  # small: what this process holds counts as memory of its children until they start
TO_DIGITS = bytes(ord("0") + value % 10 for value in range(250)) + b"0" * 6


def pieces(count):
    """Digits as bytes, the same at every run."""
    source = random.Random(1)
    while count:
        length = min(PIECE, count)
        text = source.randbytes(length + length // 32 + 1000)
        text = text.translate(TO_DIGITS, bytes(range(250, 256)))[:length]
        count -= len(text)
        yield text


def make_file(path, count):
    """Writes the digits behind "3."; returns their hash with it, and their counts."""
    value, counts = 3, [0] * 10
    shift = pow(10, CHUNK, MODULUS)
    with open(path, "wb") as file:
        file.write(b"3.")
        for text in pieces(count):
            file.write(text)
            for at in range(0, len(text), CHUNK):
                part = text[at:at + CHUNK]
                factor = shift if len(part) == CHUNK else pow(10, len(part), MODULUS)
                value = (value * factor + int(part)) % MODULUS
            for digit in range(10):
                counts[digit] += text.count(b"%d" % digit)
    return value, counts


class Runner:
    def __init__(self, program, folder, digits):
        self.program, self.folder, self.digits = program, folder, digits
        self.failed = False

    def visit(self, what, path, *lines):
        """One run of the viewer; its screen."""
        typed = "".join(line + "\n" for line in (str(path), *map(str, lines), "", ""))
        begin = time.monotonic()
        child = subprocess.Popen(
            [self.program, "pause:-2", "priority:0", "colors:0", "skip-warnings", "digitviewer"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, cwd=self.folder)
        child.stdin.write(typed)
        child.stdin.close()
        screen = child.stdout.read()
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        seconds = time.monotonic() - begin
        cpu = usage.ru_utime + usage.ru_stime
        print(f"{what:24} {seconds:8.2f} s {self.digits / seconds / 1e6:8.0f} M digits/s {cpu:8.2f} s of processors "
              f"{usage.ru_maxrss / 1024:7.1f} MiB", flush=True)
        self.require(child.returncode == 0, f"{what}: status {child.returncode}\n{screen}")
        self.require(usage.ru_maxrss < LIMIT_KIB, f"{what}: needs {usage.ru_maxrss} KiB")
        return screen

    def require(self, right, text):
        if not right:
            print("FAILED  " + text)
            self.failed = True

    def stats(self, what, path, value, counts):
        screen = self.visit(what, path, 1, 1, self.digits)
        self.require(f"Hash(start - current):      {value}\n" in screen, f"{what}: not the hash {value}")
        seen = [int(number.replace(",", "")) for number in re.findall(r"^    \d  : +([\d,]+)$", screen, re.M)]
        self.require(seen == counts, f"{what}: not the counts {counts}")


def run(runner, folder):
    digits = runner.digits
    text = folder / "digits.txt"
    begin = time.monotonic()
    value, counts = make_file(text, digits)
    print(f"made the file in {time.monotonic() - begin:.0f} s")
    with open(text, "rb") as file:
        file.seek(2 + digits - 100)
        last = file.read().decode()
    start = digits - 99
    screen = runner.visit("view, text", text, 0, start, 100)
    runner.require("".join(screen.split("Digits to View: ")[1].split()).startswith(last), "view: not the last digits")
    runner.stats("statistics, text", text, value, counts)
    runner.visit("compress, files", text, 3, digits, max(10**6, digits // 10), "set", ".")
    first = folder / "set" / "set - 0.ovd"
    runner.stats("statistics, files", first, value, counts)
    runner.visit("recompress, one file", first, 3, digits, 0, "one", ".")
    one = folder / "one - 0.ovd"
    runner.stats("statistics, one file", one, value, counts)
    for path in folder.glob("set/*"):
        path.unlink()
    runner.visit("extract", one, 2, 1, digits, "back")
    same = subprocess.run(["cmp", text, folder / "back.txt"]).returncode == 0
    runner.require(same, "extract: not the bytes of the file")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", required=True)
    parser.add_argument("--digits", type=int, default=10**9)
    parser.add_argument("--folder", default=".")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="viewer-", dir=arguments.folder) as name:
        runner = Runner(os.path.abspath(arguments.program), name, arguments.digits)
        run(runner, pathlib.Path(name).resolve())
    return 1 if runner.failed else 0


if __name__ == "__main__":
    sys.exit(main())
