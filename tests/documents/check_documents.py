#!/usr/bin/env python3
"""Checks what is made from the option tables.

  check_documents.py manual DOCUMENTS       man reads it without a warning, and it explains every option
  check_documents.py completion DOCUMENTS   what bash completes, by its variables and typed at a terminal
  check_documents.py pages DOCUMENTS        every action and option is driven by a page of tests/menus

DOCUMENTS is the folder `documents` of the build. Status 77: the tool that is needed is not here."""
import os
import pathlib
import pty
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True
SKIPPED = 77
MENUS = pathlib.Path(__file__).resolve().parent.parent / "menus"


def rows(documents):
    """(action, key, form) of every row; the key of an action's own row is empty."""
    return [tuple(line.split("\t")) for line in (documents / "options.tsv").read_text().splitlines()]


def skip(why):
    print("SKIPPED: " + why)
    sys.exit(SKIPPED)


def check_manual(documents):
    page = documents / "orvane.1"
    if not shutil.which("man"):
        skip("there is no man here (Debian: man-db)")
    environment = {**os.environ, "MANWIDTH": "80", "LC_ALL": "C.UTF-8", "MANROFFOPT": "-rHY=0"}
    done = subprocess.run(["man", "--warnings", "-P", "cat", "-l", page], env=environment, capture_output=True, text=True)
    text = re.sub(r".\x08", "", done.stdout)
    faults = [f"man: {line}" for line in done.stderr.splitlines()]
    if done.returncode:
        faults.append(f"man ended with status {done.returncode}")
    faults += [f"{len(line)} columns: {line}" for line in text.splitlines() if len(line) > 80]
    words = " ".join(text.split())
    faults += [f"the manual does not hold '{form}'" for _, _, form in rows(documents) if " ".join(form.split()) not in words]
    faults += [f"the manual has no section {name}" for name in ("NAME", "SYNOPSIS", "FIRST STEPS", "ACTIONS", "FILES")
               if not re.search(f"^{name}$", text, re.M)]
    if shutil.which("mandoc"):
        lint = subprocess.run(["mandoc", "-T", "lint", "-W", "error", page], capture_output=True, text=True)
        faults += lint.stdout.splitlines()
    return faults


# (words as bash cuts them up to the cursor, what must be offered, what must not)
COMPLETIONS = [
    (["orvane", ""], ["bench", "custom", "config", "pause:", "--help"], ["-dec:"]),
    (["orvane", "be"], ["bench", "benchio"], ["custom"]),
    (["orvane", "pause", ":", "-2", "skip-warnings", "cus"], ["custom"], ["config"]),
    (["orvane", "custom", "z"], ["zeta3", r"zeta\(3\)"], ["pi"]),
    (["orvane", "custom", "sq"], ["sqrt:"], []),
    (["orvane", "custom", "custom", ":"], [r"a\ b.cfg", "folder/"], ["other.txt", "''"]),
    (["orvane", "custom", "pi", "-"], ["-dec:", "-o", "-PF:"], ["25m", "--version"]),
    (["orvane", "custom", "pi", "-algorithm", ":"], ["chudnovsky", "ramanujan-reduced"], ["newton"]),
    (["orvane", "custom", "e", "-algorithm", ":", "exp"], [r"exp\(1\)", r"exp\(-1\)"], ["chudnovsky"]),
    (["orvane", "custom", "sqrt", ":", "2", "-algorithm", ":", ""], ["-dec:"], ["newton"]),
    (["orvane", "custom", "pi", "-PF", ":", "pu"], ["pushpool"], ["none"]),
    (["orvane", "custom", "pi", "-PF:pu"], ["-PF:pushpool"], []),
    (["orvane", "custom", "pi", "-MA", ":"], ["malloc", "mmap"], []),
    (["orvane", "custom", "pi", "-mode", ":", "swap", "-swap", ":", "raid0", "fol"], ["folder"], []),
    (["orvane", "custom", "pi", "-o", ""], ["folder"], ["a b.cfg"]),
    (["orvane", "bench", "2"], ["25m", "2.5t", "2G"], ["1M", "-o"]),
    (["orvane", "stress", ""], ["BKT", "-M:"], ["25m"]),
    (["orvane", "config", ""], ["a b.cfg", "folder"], ["other.txt"]),
    (["orvane", "digitviewer", ""], ["other.txt", "--help"], ["-stats"]),
    (["orvane", "digitviewer", "other.txt", "-"], ["-view:", "-stats", "-extract"], ["--help"]),
    (["orvane", "digitviewer", "other.txt", "-search", ""], ["folder"], ["other.txt"]),
    (["orvane", "digitviewer", "other.txt", "-check", ""], ["other.txt"], []),
    (["orvane", "checkdigits", "other.txt", ""], ["other.txt"], ["--help"]),
    (["orvane", "--help", "b"], ["bench", "bbp"], ["custom"]),
]


def bash_offers(script, words, folder):
    line = "COMP_WORDS=(\"$@\"); COMP_CWORD=$(($#-1)); _orvane; printf '%s\\n' \"${COMPREPLY[@]}\""
    done = subprocess.run(["bash", "--norc", "-c", f"source '{script}'; {line}", "bash", *words], cwd=folder,
                          capture_output=True, text=True)
    errors = [error for error in done.stderr.splitlines() if error]
    return done.stdout.splitlines(), errors


def type_at_terminal(script, folder, typed, wanted, seconds=10.0):
    """Types into an interactive bash and waits for the text on its screen. Returns the screen."""
    child, terminal = pty.fork()
    if child == 0:
        os.chdir(folder)
        os.environ.update(PS1="$ ", TERM="dumb", INPUTRC="/dev/null")
        os.execlp("bash", "bash", "--norc", "--noprofile", "-i")
    os.write(terminal, f"source '{script}'; echo rea''dy\n".encode())
    screen, end, sent = "", time.monotonic() + seconds, False
    while time.monotonic() < end and not (sent and wanted in screen):
        if select.select([terminal], [], [], 0.05)[0]:
            screen += os.read(terminal, 4096).decode(errors="replace")
        if not sent and "ready\r" in screen:
            screen, sent = "", True
            os.write(terminal, typed.encode())
    os.kill(child, 9)
    os.waitpid(child, 0)
    os.close(terminal)
    return screen


def check_completion(documents):
    if not shutil.which("bash"):
        skip("there is no bash here")
    script, faults = documents / "orvane", []
    with tempfile.TemporaryDirectory() as folder:
        (pathlib.Path(folder) / "folder").mkdir()
        for name in ("a b.cfg", "other.txt"):
            (pathlib.Path(folder) / name).touch()
        for words, wanted, unwanted in COMPLETIONS:
            offered, errors = bash_offers(script, words, folder)
            line = " ".join(words)
            faults += [f"'{line}': {error}" for error in errors]
            faults += [f"'{line}' does not offer '{word}', only: {' '.join(offered)}" for word in wanted
                       if word not in offered]
            faults += [f"'{line}' offers '{word}'" for word in unwanted if word in offered]
        # Behind a colon only the rest of the word may be put in, and no blank before a value.
        for typed, wanted in (("orvane custom pi -PF:pus\t", "-PF:pushpool "), ("orvane custom sq\t2 x", "sqrt:2 x"),
                              ("orvane config a\t", "a\\ b.cfg ")):
            screen = type_at_terminal(script, folder, typed, wanted)
            if wanted not in screen:
                faults.append(f"typed '{typed!r}', expected '{wanted}', seen: {screen!r}")
    # Every row of the tables is a word of the script.
    text = script.read_text()
    for action, key, form in rows(documents):
        word = (key or action) + (":" if key and form[len(key):len(key) + 1] == ":" else "")
        if f"'{word}'" not in text:
            faults.append(f"the completion does not know '{word}' of {action}")
    return faults


def check_pages(documents):
    sys.path.insert(0, str(MENUS))
    import page  # noqa: PLC0415

    globals_known = {key for action, key, _ in rows(documents) if action == "global"}
    driven = set()
    for path in MENUS.glob("*.page"):
        for run in page.Page(path).runs:
            words = [word.split(":", 1)[0] for word in run.arguments]
            while words and words[0] in globals_known:
                driven.add(("global", words.pop(0)))
            if not words:
                continue
            driven.add((words[0], ""))
            driven.update((words[0], word) for word in words[1:])
    return [f"no page drives {action} {key}".rstrip() for action, key, _ in rows(documents)
            if (action, key) not in driven]


def main():
    checks = {"manual": check_manual, "completion": check_completion, "pages": check_pages}
    if len(sys.argv) != 3 or sys.argv[1] not in checks:
        sys.exit(__doc__)
    faults = checks[sys.argv[1]](pathlib.Path(sys.argv[2]).resolve())
    print("\n".join(faults) or "no faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
