"""One page: what the program is given and the screen it must show. README.md tells the form."""
import difflib
import pathlib
import re
import shlex

PLACEHOLDERS = {
    "<number>": r"[0-9][0-9,]*(?:\.[0-9]+)*",
    "<seconds>": r"[0-9][0-9,]*\.[0-9]+",
    "<date>": r"[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}",
    "<bytes>": r"[0-9][0-9,]* \( *[0-9.]+ (?:bytes|[KMGTPE]iB)\)",
    "<any>": r".*",
}
PLACEHOLDER = re.compile("|".join(re.escape(name) for name in PLACEHOLDERS))
LEFT_OUT = "..."
DIFFERENCE_LINES = 60
ONCE = {"input", "status", "screen", "interrupt", "timeout", "cuts", "environment"}


class PageError(Exception):
    """The page itself is not in the form."""


class Run:
    """One start of the program: `arguments` opens it, what follows belongs to it."""

    def __init__(self, arguments, line_number):
        self.arguments = arguments
        self.line_number = line_number
        self.input = []
        self.status = 0
        self.screen = None
        self.interrupt = None
        self.timeout = 20.0
        self.cuts = None
        self.environment = {}
        self.expected_files = []  # (pattern of the name, lines, crlf)
        self.absent_files = []
        self.given = set()


class Page:
    def __init__(self, path):
        self.path = pathlib.Path(path)
        self.name = self.path.stem
        self.title = []
        self.files = []  # (name, text)
        self.runs = []
        self.sections = []  # (head, body lines), as they stand in the file
        self._cut()
        for number, head, body in self.sections:
            self._take(number, head, body)
        if not self.runs:
            raise PageError(f"{self.path}: no section '== arguments'")

    def _cut(self):
        head, number, body = None, 0, []
        # Only line feeds end a line: a page may hold any other control character.
        lines = self.path.read_text(encoding="utf-8").split("\n")
        if lines and lines[-1] == "":
            lines.pop()
        for at, line in enumerate(lines, 1):
            if line.startswith("== "):
                self.sections.append((number, head, body))
                head, number, body = line[3:], at, []
            else:
                body.append(line)
        self.sections.append((number, head, body))
        self.title = self.sections.pop(0)[2]

    def _take(self, number, head, body):
        word, _, rest = head.partition(" ")
        if word == "arguments":
            self.runs.append(Run([word for line in body for word in shlex.split(line)], number))
            return
        if word == "file":
            name, crlf = file_name(rest)
            end = "\r\n" if crlf else "\n"
            self.files.append((name, "".join(line + end for line in strip_blank_end(body)), len(self.runs)))
            return
        if not self.runs:
            raise PageError(f"{self.path}:{number}: '== {head}' stands before '== arguments'")
        run = self.runs[-1]
        if word in ONCE and word in run.given:
            raise PageError(f"{self.path}:{number}: a second '== {word}' for one run")
        run.given.add(word)
        if word == "input":
            run.input = body
        elif word == "status":
            run.status = int(rest)
        elif word == "screen":
            run.screen = strip_blank_end(body)
        elif word == "interrupt":
            run.interrupt = rest
        elif word == "timeout":
            run.timeout = float(rest)
        elif word == "cuts":
            run.cuts = -1 if rest == "none" else int(rest)
        elif word == "environment":
            run.environment = dict(line.split("=", 1) for line in body if line)
        elif word == "expect":
            name, crlf = file_name(rest)
            run.expected_files.append((name, strip_blank_end(body), crlf))
        elif word == "absent":
            run.absent_files.append(rest)
        else:
            raise PageError(f"{self.path}:{number}: no section is called '{word}'")

    def write_screens(self, screens):
        """Replaces the screens, one a run; every other line of the page stays."""
        lines = list(self.title)
        run = -1
        for _, head, body in self.sections:
            if head.startswith("arguments"):
                if run >= 0 and self.runs[run].screen is None:
                    lines += ["== screen"] + screens[run]
                run += 1
            lines.append("== " + head)
            lines += screens[run] if head == "screen" else body
        if self.runs[run].screen is None:
            lines += ["== screen"] + screens[run]
        self.path.write_text("\n".join(lines) + "\n", encoding="utf-8")


def file_name(text):
    """'NAME' or 'NAME crlf'."""
    return (text[: -len(" crlf")], True) if text.endswith(" crlf") else (text, False)


def strip_blank_end(lines):
    end = len(lines)
    while end and not lines[end - 1].strip():
        end -= 1
    return lines[:end]


def line_pattern(line):
    """A line as an expression. Blanks that border on a placeholder stand for one or more: the value's width varies."""
    line = line.rstrip()
    parts, at = [], 0
    found = list(PLACEHOLDER.finditer(line))
    for i, match in enumerate(found):
        parts.append(blanks(line[at : match.start()], at != 0, True))
        parts.append(PLACEHOLDERS[match.group()])
        at = match.end()
    parts.append(blanks(line[at:], bool(found), False))
    return re.compile("".join(parts))


def blanks(text, loose_front, loose_back):
    core = text
    front = back = ""
    if loose_front and core.startswith(" "):
        core, front = core.lstrip(" "), " +"
    if loose_back and core.endswith(" "):
        core, back = core.rstrip(" "), " +"
    return front + re.escape(core) + back


def shown(data, folder):
    """Output as the lines of a page: what an editor would hide or change is spelt out."""
    text = data.decode("utf-8", errors="backslashreplace").replace(str(folder), "<folder>")
    text = text.replace("\x1b", "<esc>").replace("\r", "<cr>")
    return strip_blank_end([line.rstrip() for line in text.split("\n")])


def matches(expected, seen):
    """True if the lines fit; '...' stands for any number of lines, none too."""
    # reach[j]: the expected lines so far can stand for seen[0, j).
    reach = [True] + [False] * len(seen)
    for line in expected:
        if line == LEFT_OUT:
            first = next((j for j, r in enumerate(reach) if r), len(reach))
            reach = [j >= first for j in range(len(reach))]
            continue
        pattern = line_pattern(line)
        reach = [False] + [reach[j] and bool(pattern.fullmatch(seen[j])) for j in range(len(seen))]
    return reach[-1]


def align(expected, seen):
    """The seen lines as a page would hold them: an expected line that fits one stays, and so does '...' where nothing
    else stood in its place."""
    patterns = [None if line == LEFT_OUT else line_pattern(line) for line in expected]
    fits = [[p is not None and bool(p.fullmatch(line)) for line in seen] for p in patterns]
    # best[i][j]: most expected lines that can be kept of expected[i:] against seen[j:].
    best = [[0] * (len(seen) + 1) for _ in range(len(expected) + 1)]
    for i in reversed(range(len(expected))):
        for j in reversed(range(len(seen))):
            best[i][j] = max(best[i + 1][j], best[i][j + 1])
            if fits[i][j]:
                best[i][j] = max(best[i][j], best[i + 1][j + 1] + 1)
    result, gap_seen, gap_expected = [], [], []

    def close_gap():
        left_out = LEFT_OUT in gap_expected
        result.extend([LEFT_OUT] if left_out and len(gap_expected) == 1 else gap_seen)
        gap_seen.clear()
        gap_expected.clear()

    i = j = 0
    while i < len(expected) and j < len(seen):
        if fits[i][j] and best[i][j] == best[i + 1][j + 1] + 1:
            close_gap()
            result.append(expected[i])
            i, j = i + 1, j + 1
        elif best[i + 1][j] >= best[i][j + 1]:
            gap_expected.append(expected[i])
            i += 1
        else:
            gap_seen.append(seen[j])
            j += 1
    gap_expected += expected[i:]
    gap_seen += seen[j:]
    close_gap()
    return result


def without_processor_check(seen):
    """A first screen: the list of features that every start prints is left out."""
    if "Required Features:" not in seen:
        return seen
    at = seen.index("Required Features:")
    while at < len(seen) and seen[at]:
        at += 1
    return [LEFT_OUT] + seen[at:]


def difference(expected, seen, what):
    """A diff in which lines that fit a placeholder are not shown as changed."""
    lines = list(difflib.unified_diff(expected, align(expected, seen), f"expected {what}", f"seen {what}",
                                      lineterm="", n=3))
    if len(lines) > DIFFERENCE_LINES:
        lines[DIFFERENCE_LINES:] = [f"and {len(lines) - DIFFERENCE_LINES} lines more"]
    return "\n".join(lines)
