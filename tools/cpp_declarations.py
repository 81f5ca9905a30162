"""Declarations of a C++ source, read without a compiler: enough for sources that are formatted by clang-format.

What is inside of function bodies is not looked at, and every branch of an #if counts."""
import bisect
import dataclasses
import re

TOKEN = re.compile(r'//[^\n]*|/\*.*?\*/|R"([^(\s]*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|(?<![0-9a-zA-Z_])\'(?:\\.|[^\'\\\n])+\'', re.DOTALL)
DIRECTIVE = re.compile(r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", re.MULTILINE)
TYPE_HEAD = re.compile(r"^(?:typedef\s+)?(class|struct|union|enum(?:\s+(?:class|struct))?)\b(?:\s*alignas\s*\([^)]*\)|\s*\[\[.*?\]\])*\s*([\w:]*)")
NO_NAME = {"if", "for", "while", "switch", "catch", "return", "sizeof", "alignas", "alignof", "decltype", "noexcept",
           "requires", "static_assert", "__attribute__", "explicit", "defined", "asm"}


@dataclasses.dataclass
class Declaration:
    kind: str                  # "function", "class", "enum", "field" (a variable, in a class or not) or "other"
    name: str
    head: str                  # its text up to the body, blanks squeezed
    scopes: list               # (kind, name) of what it lies in, outermost first; "" names what has no name
    access: str                # "public", "protected" or "private"; outside of classes always "public"
    first: int                 # line of its first word
    last: int                  # line where its head ends
    arguments: list = None     # of a function
    body: str = None           # with comments and literals blanked


def blank(match):
    """Blanks in place of the text, lines kept; a literal leaves its quotes."""
    text = match.group(0)
    kept = re.sub(r"[^\n]", " ", text)
    return '"' + kept[1:-1] + '"' if text[0] in "R\"'" else kept


def blanked(text):
    """The source without comments, literals and directives, every character at its place."""
    return DIRECTIVE.sub(blank, TOKEN.sub(blank, text))


def closing(code, at, pair="{}"):
    """Position of the bracket that closes the one at `at`."""
    depth = 0
    for match in re.compile("[" + re.escape(pair) + "]").finditer(code, at):
        depth += 1 if match.group(0) == pair[0] else -1
        if depth == 0:
            return match.start()
    return len(code) - 1


def without_templates(head):
    """The head behind its `template <...>` and attributes."""
    while True:
        match = re.match(r"\s*(?:template\s*<|\[\[)", head)
        if not match:
            return head.strip()
        if match.group(0).endswith("<"):
            depth, at = 0, match.end() - 1
            for at in range(match.end() - 1, len(head)):
                depth += {"<": 1, ">": -1}.get(head[at], 0)
                if depth == 0:
                    break
            head = head[at + 1:]
        else:
            head = head[head.index("]]") + 2:]


def split_arguments(text):
    """At the commas outside of every bracket."""
    parts, depth, begin = [], 0, 0
    for at, c in enumerate(text):
        depth += 1 if c in "([{<" else -1 if c in ")]}" or (c == ">" and text[at - 1] != "-") else 0
        if c == "," and depth == 0:
            parts.append(text[begin:at])
            begin = at + 1
    parts = [part.strip() for part in parts + [text[begin:]]]
    return [part for part in parts if part and part != "void"]


def function_of(head):
    """(name, arguments) where the head declares a function, else None."""
    head = without_templates(head)
    depth = 0
    for at, c in enumerate(head):
        if c == "=" and depth == 0 and not re.search(r"operator\s*[-+*/%&|^<>=!]*$", head[:at]):
            return None
        if c == "<" and not re.search(r"operator\s*<*$", head[:at]):
            depth += 1
        elif c == ">" and head[at - 1] != "-" and depth:
            depth -= 1
        elif c == "(" and depth == 0:
            before = head[:at].rstrip()
            if head[at + 1:].lstrip().startswith(("*", "&")) and not before.endswith("operator"):
                return None  # a pointer to a function
            operator = re.search(r"(operator\s*(?:\(\s*\)|[^\w\s(]+|\w[\w\s:&*<>]*))$", before)
            name = re.search(r"(~?\w+)\s*(?:<[^()]*>)?$", before)
            end = closing(head, at, "()")
            if before.endswith("operator"):
                continue
            if operator:
                return operator.group(1), split_arguments(head[at + 1:end])
            if not name or name.group(1) in NO_NAME or name.group(1)[0].isdigit():
                if name and name.group(1) in {"alignas", "decltype", "noexcept", "requires", "__attribute__", "explicit"}:
                    return function_of(head[end + 1:])
                return None
            return name.group(1), split_arguments(head[at + 1:end])
    return None


def opens_initialiser(head):
    """Whether the brace behind the head holds a value, so that the declaration goes on behind it."""
    plain = without_templates(head)
    if plain.count("(") > plain.count(")"):
        return True
    function = function_of(plain)
    if not function:
        return not re.match(r"(?:inline\s+)?namespace\b|extern\b", plain) and not TYPE_HEAD.match(plain)
    members = re.search(r"\)[^()]*?(?<!:):(?!:)(.*)$", plain, re.DOTALL)
    return bool(members) and bool(re.search(r"[\w>]\s*$", members.group(1)))


class Scanner:
    def __init__(self, text):
        self.code = blanked(text)
        self.lines = [i for i, c in enumerate(self.code) if c == "\n"]
        self.found = []

    def line(self, at):
        return bisect.bisect_left(self.lines, at) + 1

    def add(self, begin, end, scopes, access, body=None):
        raw = self.code[begin:end]
        if not raw.strip():
            return None
        head, plain = " ".join(raw.split()), without_templates(" ".join(raw.split()))
        first = self.line(begin + len(raw) - len(raw.lstrip()))
        kind, name, arguments = "other", "", None
        type_head, function = TYPE_HEAD.match(plain), function_of(plain)
        skipped = re.match(r"using\b|typedef\b|friend\b|static_assert\b|extern template\b|template\b|namespace\b|concept\b", plain)
        explicit = re.match(r"\s*template\s*(?!<|\s)", head)
        if skipped or explicit:
            pass
        elif type_head and (body is not None or not plain[type_head.end():].strip()):
            kind, name = ("enum" if type_head.group(1).startswith("enum") else "class"), type_head.group(2)
        elif function:
            kind, (name, arguments) = "function", function
        else:
            match = re.search(r"([\w:]+)\s*(?:\[[^\]]*\]\s*)*(?:=.*|\{.*)?$", plain, re.DOTALL)
            kind, name = "field", match.group(1) if match else ""
        self.found.append(Declaration(kind, name, head, list(scopes), access, first, self.line(end - 1), arguments, body))
        return self.found[-1]

    def scan(self, at, end, scopes, access):
        """Declarations of code[at, end), the inside of a namespace or class."""
        begin = at
        while at < end:
            c = self.code[at]
            if c == "(":
                at = closing(self.code, at, "()")
            elif c == ";":
                self.add(begin, at, scopes, access)
                begin = at + 1
            elif c == ":" and re.fullmatch(r"\s*(public|protected|private)\s*", self.code[begin:at]):
                access = self.code[begin:at].strip()
                begin = at + 1
            elif c == "{":
                last = closing(self.code, at)
                head = self.code[begin:at]
                plain = without_templates(head)
                if re.match(r"(?:inline\s+)?namespace\b|extern\s+\"", plain):
                    name = re.match(r"(?:inline\s+)?namespace\s*([\w:]*)", plain)
                    self.scan(at + 1, last, scopes + [("namespace", name.group(1) if name else "extern")], "public")
                    begin = last + 1
                elif not opens_initialiser(head):
                    made = self.add(begin, at, scopes, access, self.code[at + 1:last])
                    begin = last + 1
                    if made and made.kind == "class":
                        first = "private" if re.match(r"class\b", plain) else "public"
                        self.scan(at + 1, last, scopes + [("class", made.name)], first)
                        begin = self.code.find(";", last) + 1
                        last = begin - 1
                    elif made and made.kind == "enum":
                        begin = self.code.find(";", last) + 1
                        last = begin - 1
                at = last
            at += 1
        return self.found


def declarations(text):
    """Every declaration outside of function bodies, in order of its end."""
    scanner = Scanner(text)
    return scanner.scan(0, len(scanner.code), [], "public")
