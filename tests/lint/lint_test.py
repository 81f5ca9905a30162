#!/usr/bin/env python3
"""The checks of the sources see what they are there for: each is given a copy with one fault in it.

  lint_test.py --compiler g++"""
import argparse
import contextlib
import io
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))
import check_docs  # noqa: E402
import check_includes  # noqa: E402
import check_pages  # noqa: E402
import check_shape  # noqa: E402
from cpp_declarations import blanked, declarations  # noqa: E402

COMPILER = "g++"


def run(check, *arguments):
    """(status, output) of the main function of a check."""
    printed, line = io.StringIO(), sys.argv
    sys.argv = [check.__name__, *map(str, arguments)]
    try:
        with contextlib.redirect_stdout(printed):
            return check.main(), printed.getvalue()
    finally:
        sys.argv = line


class Tree(unittest.TestCase):
    """A copy of the folders, with those of their files that a check reads."""

    @classmethod
    def setUpClass(cls):
        cls.place = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.place.cleanup)
        cls.root = pathlib.Path(cls.place.name)
        for tree in ("src", "tests", "bench", "docs"):
            shutil.copytree(ROOT / tree, cls.root / tree, ignore=shutil.ignore_patterns("__pycache__", "*.page"))

    @contextlib.contextmanager
    def edited(self, name, edit):
        path = self.root / name
        text = path.read_text() if path.exists() else None
        path.write_text(edit(text or ""))
        try:
            yield
        finally:
            path.unlink() if text is None else path.write_text(text)

    def faults(self):
        return check_includes.check(self.root)[0]


class Includes(Tree):
    def folders(self, tree):
        return sorted({path.parent for path in check_includes.sources(self.root / tree)})

    def test_a_wrong_include_in_any_folder_is_named(self):
        """One file for each folder and kind of fault, all at once."""
        self.assertEqual(self.faults(), [])
        graph = check_includes.graph_of(self.root)
        headers = {folder: sorted((self.root / "src" / folder).glob("*.h")) for folder in graph}
        added, folders = {}, 0
        for tree in ("src", "tests", "bench"):
            for path in self.folders(tree):
                folder = path.relative_to(self.root / tree).as_posix()
                barred = [] if tree != "src" and folder in check_includes.PROGRAMS[tree] else \
                    [other for other in graph if other != folder and headers[other]
                     and other not in check_includes.closure(graph, folder)]
                wrong = ["nowhere/nothing.h"] + [f"{other}/{headers[other][0].name}" for other in barred[:2]]
                if tree == "tests":
                    wrong += [f"{other.name}/{next(other.glob('*.cpp')).name}" for other in self.folders(tree)
                              if other != path and other.name not in check_includes.closure(graph, folder)
                              and other.name in graph and list(other.glob("*.cpp"))][:1]
                self.assertTrue(len(wrong) > 1 or folder in check_includes.PROGRAMS.get(tree, ()) or folder == "app", folder)
                added.update({f"{tree}/{folder}/added_{i}.cpp": included for i, included in enumerate(wrong)})
                folders += 1
        with contextlib.ExitStack() as stack:
            for name, included in added.items():
                stack.enter_context(self.edited(name, lambda _, included=included: f'#include "{included}"\n'))
            found = self.faults()
        self.assertEqual(set(added) ^ {fault.split(":")[0] for fault in found}, set())
        self.assertEqual(len(added), len(found))
        self.assertGreater(folders, 60)

    def test_other_faults_of_the_tree_are_named(self):
        faults = {
            "a folder that uses one above it": ("src/words/CMakeLists.txt", lambda text: text.replace("USES ", "USES app ", 1)),
            "a folder that uses none of ours": ("src/words/CMakeLists.txt", lambda text: text.replace("USES ", "USES nothing ", 1)),
            "files that include each other": ("src/core/types.h", lambda text: text + '#include "core/exceptions.h"\n'),
            "a page that states another graph": ("docs/architecture.md", lambda text: text.replace("| core |", "| words |", 1)),
            "a page without a folder": ("docs/architecture.md", lambda text: text.replace("| `words` |", "| words |", 1)),
            "sources without orvane_folder()": ("src/words/CMakeLists.txt", lambda text: ""),
            "a folder without a page": ("src/extra/CMakeLists.txt", lambda text: "orvane_folder(USES core)\n"),
        }
        (self.root / "src/extra").mkdir()
        self.addCleanup((self.root / "src/extra").rmdir)
        for what, (name, edit) in faults.items():
            with self.subTest(what), self.edited(name, edit):
                self.assertNotEqual(self.faults(), [])


class Pages(unittest.TestCase):
    def test_a_name_of_no_file_is_listed(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            (root / "src/words").mkdir(parents=True)
            (root / "src/words/hash.h").write_text("")
            (root / "README.md").write_text("")
            (root / "src/words/README.md").write_text("`hash.h` and `words/hash.h`, not hash.cpp.\n")
            status, text = run(check_pages, root)
            self.assertEqual(status, 0, text)
            (root / "README.md").write_text("In `src/words/hash.cpp`.\n")
            status, text = run(check_pages, root)
            self.assertEqual(status, 1, text)
            self.assertIn("src/words/hash.cpp", text)


class Shape(unittest.TestCase):
    def test_what_goes_against_a_rule_is_listed(self):
        passing = {"--over-eight": 0, "--over-six": 1, "--console": 0, "--shells": 0}
        sources = {
            "src/core/CMakeLists.txt": "orvane_folder()",
            "src/console/CMakeLists.txt": "orvane_folder(USES core)",
            "src/functions/CMakeLists.txt": "orvane_folder(USES core)",
            "src/session/CMakeLists.txt": "orvane_folder(USES functions console)",
            "src/console/console.cpp": "namespace console { void print() { console::print(); } }",
            "src/session/stages.cpp": "void stages() { console::print(); }",
            "src/functions/residual.cpp": "void inner(LinearHeapBuffer heap, BigFloat<W>& x) {}",
            "src/functions/shell.cpp": "// No console::print(), no BigFloat<W>.\ntemplate class Shell<BigFloat<u64>>;\n"
                                       "void six(A a, std::map<int, int> b, int c = f(1, 2), D d, void (*e)(int, int), F f) {}\n"
                                       "void seven(int a, int b, int c, int d, int e, int f, int g) { call(1, 2, 3, 4, 5, 6, 7, 8, 9); }\n"
                                       "void eight(int a, int b, int c, int d, int e, int f, int g, int h);\n",
        }
        added = {
            "takes 9 arguments": "Shell::Shell(A a, B b, C c, D d, E e, F f, G g, H h, I i) noexcept : a_{a}, b_(b) {}",
            "takes 7 arguments": "template <class A, class B>\nauto seven(A a, B b, int c, int d, int e, int f, int g) -> int {}",
            "shell.cpp:6: void print()": "void print() { orl::console::println(); }",
            "shell.cpp:6: void store(Linear": "void store(LinearHeapBuffer heap);",
            "shell.cpp:6: BigFloat<W> x;": "BigFloat<W> x;",
        }
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name, text in sources.items():
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text(text)
            limits = [word for option in passing.items() for word in option]
            status, text = run(check_shape, *limits, root)
            self.assertEqual(status, 0, text)
            for words, line in added.items():
                with self.subTest(line):
                    (root / "src/functions/shell.cpp").write_text(sources["src/functions/shell.cpp"] + line + "\n")
                    status, text = run(check_shape, *limits, root)
                    self.assertEqual(status, 1, text)
                    self.assertIn(words, text)


class Docs(unittest.TestCase):
    EXPLAINED = """// What an Opened is for.
#pragma once
namespace orl {
class Forward;
class Opened {
 public:
  Opened() = default;
  ~Opened();
  u64 size() const { return size_; }
  bool operator==(const Opened& other) const;
  void run() override;
  void behind();  ///< explained here
  /// Two of a kind.
  void first(int a);
  void second(int a);
 private:
  void hidden();
  u64 size_ = 0;
};
/// Doubles.
template <class W>
W twice(W x);
template <class W>
W twice(W x) {
  return 2 * x;
}
namespace detail {
void inner();
}
}  // namespace orl
"""

    def test_what_nobody_explains_is_listed(self):
        added = {"function orl_free": "void orl_free(int a);", "class Bare": "struct Bare { int x; };",
                 "enum Kind": "enum class Kind { kOne };", "function twice_more": "template <class W>\nW twice_more(W x) { return W{2}; }",
                 "function Known::set": "/// Known.\nclass Known {\n public:\n  void set(int x) { x_ = x; }\n};",
                 "function Known::Known": "/// Known.\nstruct Known {\n  explicit Known(int x);\n};"}
        with tempfile.TemporaryDirectory() as folder:
            header = pathlib.Path(folder) / "header.h"
            header.write_text(self.EXPLAINED)
            status, text = run(check_docs, header)
            self.assertEqual(status, 0, text)
            for words, line in added.items():
                with self.subTest(line):
                    header.write_text(self.EXPLAINED + "\n" + line + "\n")
                    status, text = run(check_docs, header)
                    self.assertEqual(status, 1, text)
                    self.assertIn(words + "\n", text)

    def test_every_function_of_a_source_is_read(self):
        """A brace in the first column closes a body, but for a few values of several lines."""
        missed, seen = [], 0
        for path in sorted((ROOT / "src").rglob("*.cpp")):
            text = path.read_text()
            lines = zip(text.splitlines(), blanked(text).splitlines(), strict=True)
            ends = {number for number, (line, code) in enumerate(lines, 1) if line == code == "}"}
            found = {one.last + (one.body or "").count("\n") for one in declarations(text)}
            missed += [f"{path}:{line}" for line in ends - found]
            seen += len(ends)
        self.assertLess(len(missed), seen // 100, missed)


class Programs(unittest.TestCase):
    def test_wide_instructions_outside_of_kernels_are_named(self):
        kernel = '#pragma GCC push_options\n#pragma GCC target("avx2")\nnamespace orl::avx2 {{ {} }}\n#pragma GCC pop_options\n'
        body = "void {}(double* x) {{ for (int i = 0; i < 64; ++i) x[i] *= 2; }}"
        sources = {"sound": (0, kernel.format(body.format("twice"))),
                   "no kernel": (1, body.format("twice")),
                   "leak": (1, kernel.format(body.format("twice")) + '__attribute__((target("avx2"))) ' + body.format("leaking"))}
        with tempfile.TemporaryDirectory() as folder:
            for what, (status, text) in sources.items():
                with self.subTest(what):
                    source, program = pathlib.Path(folder) / "source.cpp", pathlib.Path(folder) / "source.o"
                    source.write_text(text)
                    subprocess.run([COMPILER, "-O2", "-ftree-vectorize", "-c", source, "-o", program], check=True)
                    done = subprocess.run([sys.executable, ROOT / "tools/check_isa_leak.py", program], capture_output=True,
                                          text=True, check=False)
                    self.assertEqual(done.returncode, status, done.stdout)
                    self.assertEqual("leaking(double*): v" in done.stdout, what == "leak", done.stdout)

    def test_a_source_out_of_format_is_named(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            (root / "tools").mkdir()
            shutil.copy(ROOT / "tools/check_format.sh", root / "tools")
            shutil.copy(ROOT / ".clang-format", root)
            check = lambda: subprocess.run([root / "tools/check_format.sh"], capture_output=True, text=True, check=False)
            subprocess.run(["git", "init", "-q", root], check=True)
            (root / "good.cpp").write_text("int one() { return 1; }\n")
            subprocess.run(["git", "-C", root, "add", "."], check=True)
            status = check().returncode
            if status == 77:
                self.skipTest("there is no clang-format of the tree's version")
            self.assertEqual(status, 0)
            (root / "bad.h").write_text("int  two( );\n")
            subprocess.run(["git", "-C", root, "add", "."], check=True)
            done = check()
            self.assertNotEqual(done.returncode, 0)
            self.assertIn("bad.h", done.stderr)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--compiler", default=COMPILER)
    options, rest = parser.parse_known_args()
    COMPILER = options.compiler
    unittest.main(argv=[sys.argv[0], *rest])
