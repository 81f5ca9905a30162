"""Menu entries: what the screens of the pages offer, and what the pages choose of it.

An entry is known by the line above its menu, its number and its label. Every menu but the main one is opened by an entry
of another, so entries that are all chosen have shown every menu."""
import re
import threading

ROW = re.compile(r" {1,4}(\d+)(?:/(\d+))? {2,}([A-Za-z0-9(].*)")
# A choice in the benchmark's tables of sizes starts a run of that size; sizes are rows of one table of the program, and
# every one of them is driven from the command line.
LEFT_OUT = {"Option"}


def label(text):
    """What is in front of a value; numbers in it may vary."""
    return re.sub("[0-9]+", "#", re.split(r":| {2,}", text)[0].strip())


def offered(lines):
    """{number: (menu, number, label)} of the last menu among the lines."""
    rows, menu, above = {}, "", ""
    for line in lines:
        row = ROW.fullmatch(line)
        if not row:
            above = line if line.strip() else above
            continue
        numbers = [number for number in row.groups()[:2] if number]
        if not rows or numbers[0] in rows:
            rows, menu = {}, label(above)
        # "20/21  Load / Save ..." are two entries.
        rows.update((number, (menu, number, label(row[3]))) for number in numbers)
    return {} if menu in LEFT_OUT else rows


class Entries:
    """Of all pages; they may be added side by side."""

    def __init__(self):
        self._lock = threading.Lock()
        self._offered = {}  # entry: page
        self._chosen = set()

    def add(self, page, questions):
        """`questions`: the screen up to a question, as lines, and the line that answers it, one after the other."""
        rows, before = {}, 0
        for screen, answer in questions:
            # The last line held the question before, and the answer is not echoed.
            rows = offered(screen[max(before - 1, 0):]) or rows
            before = len(screen)
            choice = rows.get(answer.strip())
            with self._lock:
                self._offered.update((entry, page) for entry in rows.values() if entry not in self._offered)
                if choice:
                    self._chosen.add(choice)
            if choice:
                rows = {}

    def faults(self):
        return [f"no page chooses {number} '{name}' of the menu '{menu}', which the page {page} shows"
                for (menu, number, name), page in sorted(self._offered.items())
                if (menu, number, name) not in self._chosen]
