#!/usr/bin/env python3
"""Installs the build into a temporary folder and runs the program from there; then makes the Debian package, unpacks it
and runs that program.

  check_install.py BUILD

Status 77 after a good installation: there is no dpkg-deb here to look into a package."""
import pathlib
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77
FILES = ["bin/orvane", "share/man/man1/orvane.1", "share/bash-completion/completions/orvane", "share/doc/orvane/copyright",
         "share/orvane/Digits/Pi.txt"]
OPTIONS = ["pause:-2", "priority:0", "colors:0", "skip-warnings"]


def call(*command, **options):
    done = subprocess.run(command, capture_output=True, text=True, **options)
    if done.returncode:
        sys.exit(f"{' '.join(map(str, command))}: status {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


def check_tree(prefix, work):
    missing = [name for name in FILES if not (prefix / name).is_file()]
    if missing:
        sys.exit(f"not installed: {', '.join(missing)}")
    work.mkdir()
    screen = call(prefix / "bin/orvane", *OPTIONS, "custom", "pi", "-dec:1000", "-o", ".", cwd=work)
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
