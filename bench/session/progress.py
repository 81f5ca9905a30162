#!/usr/bin/env python3
"""How true the line of a run is: runs the program on a terminal of its own, reads the line as it is drawn, and says how long
it stood still at most and how far the time left that it foretold was from the time that it took.

  bench/session/progress.py -- pi -dec:100m -TD:1

What the others on the machine take away spoils times; so the run's own clock here is its processor time, and the time
left that belongs to a percentage p is foretold as (100 - p) / p of what was spent. `--slow N` stops the run for N - 1
parts of each N, as a machine would that is so much slower: for sizes that are done before the line has moved."""
import argparse
import os
import pathlib
import pty
import re
import select
import signal
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
LINE = re.compile(r"(\d+\.\d)%  (\d+):(\d\d):(\d\d)  left (\d+):(\d\d):(\d\d)")
PULSE = 0.02  # seconds of work between two stops


def seconds(hours, minutes, rest):
    return 3600 * int(hours) + 60 * int(minutes) + int(rest)


def processor_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def watch(command, folder, slow):
    """(seconds, processor seconds, percentage, left, words) of each line that was drawn; seconds and processor seconds at
    the end."""
    terminal, end = pty.openpty()
    start = time.monotonic()
    process = subprocess.Popen(command, cwd=folder, stdin=end, stdout=end, stderr=end, start_new_session=True)
    os.close(end)
    lines, text, spent, stopped, turn = [], "", 0.0, False, start
    while True:
        ready, _, _ = select.select([terminal], [], [], 0.005 if slow > 1 else 0.1)
        now = time.monotonic()
        if slow > 1 and now - turn >= PULSE * (slow - 1 if stopped else 1):
            os.kill(process.pid, signal.SIGCONT if stopped else signal.SIGSTOP)
            stopped, turn = not stopped, now
        try:
            spent = max(spent, processor_seconds(process.pid))
            chunk = os.read(terminal, 65536) if ready else b""
        except OSError:
            break
        if ready and not chunk:
            break
        text += chunk.decode(errors="replace")
        *whole, text = re.split(r"[\r\n]", text)
        for line in [*whole, text]:
            if (found := LINE.search(line)) and (not lines or lines[-1][4] != line.strip()):
                lines.append((now - start, spent, float(found[1]), seconds(*found.groups()[4:]), line.strip()))
    if stopped:
        os.kill(process.pid, signal.SIGCONT)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode:
        sys.exit(f"{' '.join(map(str, command))} ended with {process.returncode}")
    return lines, time.monotonic() - start, usage.ru_utime + usage.ru_stime


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", default=str(ROOT / "build/release/orvane"))
    parser.add_argument("--slow", type=float, default=1, help="how many times slower the run is made")
    parser.add_argument("--lines", action="store_true", help="print every line with the share of the run when it was drawn")
    parser.add_argument("--within", type=float, help="status 1 when the time left at half of the run is further off (percent)")
    parser.add_argument("--moves-within", type=float, help="status 1 when the line stands still for longer (seconds)")
    parser.add_argument("run", nargs="+", help="constant and options of a computation")
    options = parser.parse_args()
    command = [os.path.abspath(options.program), "priority:0", "pause:-2", "colors:0", "custom", *options.run]
    with tempfile.TemporaryDirectory(prefix="orvane-progress-") as folder:
        lines, wall, processor = watch(command, folder, options.slow)
    if not lines:
        sys.exit("the run ended before it drew a line: use --slow")
    pause = max(b[0] - a[0] for a, b in zip(lines, lines[1:])) if len(lines) > 1 else wall
    if options.lines:
        for at, spent, percent, left, words in lines:
            print(f"{at:8.2f} s {100 * spent / processor:6.1f} % spent  {words}")
    print(f"{wall:.1f} s, {processor:.1f} s of processors; {len(lines)} lines, longest pause {pause:.2f} s")
    half = None
    for share in (0.25, 0.5, 0.75, 0.9):
        drawn = min(lines, key=lambda line: abs(line[1] / processor - share))
        at, spent, percent, left, words = drawn
        foretold = (100 - percent) / max(percent, 0.1) * spent
        error = 100 * (foretold / (processor - spent) - 1) if processor > spent else 0
        clock = 100 * (left / (wall - at) - 1)
        half = error if share == 0.5 else half
        print(f"  at {100 * spent / processor:5.1f} % of the run: shown {percent:5.1f} %, time left {error:+6.1f} % "
              f"(by the clock: {left} s of {wall - at:.1f} s, {clock:+.0f} %)")
    late = options.moves_within and pause > options.moves_within
    return 1 if late or options.within and abs(half) > options.within else 0


if __name__ == "__main__":
    sys.exit(main())
