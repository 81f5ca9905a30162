#!/usr/bin/env python3
"""Installs the build into a temporary folder and runs the program from there, which keeps its settings in the user's home;
then makes the Debian package, unpacks it and runs that program.

  check_install.py BUILD

Status 77 after a good installation: there is no dpkg-deb here to look into a package."""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77
FILES = ["bin/orvane", "share/man/man1/orvane.1.gz", "share/bash-completion/completions/orvane", "share/doc/orvane/copyright",
         "share/orvane/Digits/Pi.txt"]
OPTIONS = ["pause:-2", "priority:0", "colors:0", "skip-warnings"]


def call(*command, **options):
    done = subprocess.run(command, capture_output=True, text=True, **options)
    if done.returncode:
        sys.exit(f"{' '.join(map(str, command))}: status {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


def names_below(folder):
    return sorted(str(path.relative_to(folder)) for path in folder.rglob("*"))


def check_settings(prefix, place):
    """The first start makes the settings in the user's home, the second reads them; nothing is written beside the program."""
    before = names_below(prefix)
    home, work = place / "home", place / "run"
    for folder, variables in ((home / ".config/orvane", {}), (place / "xdg/orvane", {"XDG_CONFIG_HOME": place / "xdg"}),
                              (None, None)):
        shutil.rmtree(place, ignore_errors=True)
        work.mkdir(parents=True)
        environment = {"PATH": os.environ["PATH"]} if folder is None else {"HOME": home, **variables}
        run = [prefix / "bin/orvane", *OPTIONS, "custom", "pi", "-dec:100", "-od:0"]
        call(*run, cwd=work, env=environment)
        if folder is None:
            break
        if names_below(folder) != ["environment.cfg"]:
            sys.exit(f"{folder} holds {names_below(folder)}, not environment.cfg alone")
        (folder / "Username.txt").write_text("Username: Ada\n")
        screen = call(*run, cwd=work, env=environment)
        if "Generating" in screen or not any("Ada" in report.read_text() for report in work.glob("Validation*")):
            sys.exit("the settings of an installed program are not read:\n" + screen)
    if names_below(prefix) != before:
        sys.exit("the installed program writes beside itself: " + ", ".join(set(names_below(prefix)) - set(before)))


def check_tree(prefix, work):
    missing = [name for name in FILES if not (prefix / name).is_file()]
    if missing:
        sys.exit(f"not installed: {', '.join(missing)}")
    work.mkdir()
    screen = call(prefix / "bin/orvane", *OPTIONS, "custom", "pi", "-dec:1000", "-o", ".", cwd=work,
                  env={"HOME": work})
    # The digits that were installed are found from the program's own folder.
    if "Passed" not in screen:
        sys.exit("the installed program does not find the installed digits:\n" + screen)
    if not (work / "Pi - Dec - Chudnovsky.txt").read_text().startswith("3.14159265358979"):
        sys.exit("wrong digits")


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    with tempfile.TemporaryDirectory(prefix="orvane-install-") as root:
        root = pathlib.Path(root)
        call("cmake", "--install", build, "--prefix", root / "prefix")
        check_tree(root / "prefix", root / "work")
        check_settings(root / "prefix", root / "settings")
        if not shutil.which("dpkg-deb"):
            print("SKIPPED: the installation is good; there is no dpkg-deb here to look into a package")
            return SKIPPED
        call("cpack", "--config", build / "CPackConfig.cmake", "-B", root / "package")
        packages = list((root / "package").glob("orvane_*.deb"))
        if len(packages) != 1:
            sys.exit(f"{len(packages)} packages were made, not one")
        listed = call("dpkg-deb", "-c", packages[0])
        print(listed + call("dpkg-deb", "-f", packages[0], "Package", "Version", "Architecture", "Depends"))
        if shutil.which("dpkg-shlibdeps") and not call("dpkg-deb", "-f", packages[0], "Depends").strip():
            sys.exit("the package names no dependencies")
        call("dpkg-deb", "-x", packages[0], root / "unpacked")
        check_tree(root / "unpacked/usr", root / "work2")
    return 0


if __name__ == "__main__":
    sys.exit(main())
