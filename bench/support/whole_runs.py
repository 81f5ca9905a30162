"""Programs as whole processes: their time, the memory that they state and use, and where they ran."""
import os
import pathlib
import platform
import re
import subprocess
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent


def timed(command, folder):
    os.sync()  # the files of the run before are no part of this one
    start = time.perf_counter()
    process = subprocess.Popen(command, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    text = process.stdout.read().decode(errors="replace")
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    seconds = time.perf_counter() - start
    if process.returncode != 0:
        raise SystemExit(f"{' '.join(command)} ended with {process.returncode}:\n{text}")
    return seconds, usage.ru_maxrss * 1024, text


def stated_bytes(text):
    """Working Memory plus Twiddle Tables as the program prints them."""
    found = re.findall(r"(?:Working Memory|Twiddle Tables)\.\.\.\s+([0-9,]+)", text)
    return sum(int(number.replace(",", "")) for number in found)


def processor():
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.split(":", 1)[1].strip()
    return platform.processor()


def commit_of(folder):
    return subprocess.run(["git", "-C", str(folder), "rev-parse", "--short", "HEAD"], capture_output=True,
                          text=True).stdout.strip()


def measuring_options(parser, runs):
    """The options that every measurement of whole runs has."""
    parser.add_argument("--build", default=str(ROOT / "build" / "release"))
    parser.add_argument("--runs", type=int, default=runs)


def one_size_options(parser):
    """Those of a measurement of constants at one size."""
    measuring_options(parser, 3)
    parser.add_argument("--digits", type=int, default=10000000)
    parser.add_argument("--threads", type=int, default=1)
    parser.add_argument("--only")
