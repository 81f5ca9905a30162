#!/usr/bin/env python3
"""Checks how pages are compared: what must fit, and above all what must not."""
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
import entries as menu_entries  # noqa: E402
import page as pages  # noqa: E402


class Matching(unittest.TestCase):
    def fits(self, expected, seen):
        return pages.matches(expected.split("\n"), seen.split("\n"))

    def test_texts_stand_to_the_byte(self):
        self.assertTrue(self.fits("a  b", "a  b"))
        self.assertFalse(self.fits("a  b", "a b"))
        self.assertFalse(self.fits("a", "A"))
        self.assertFalse(self.fits("a.b", "axb"))
        self.assertFalse(self.fits("a", "a\nb"))
        self.assertFalse(self.fits("a\nb", "a"))

    def test_placeholders_take_their_own_kind_only(self):
        self.assertTrue(self.fits("Digits:   <number>", "Digits:            1,000"))
        self.assertFalse(self.fits("Digits:   <number>", "Digits:            none"))
        self.assertFalse(self.fits("Digits:<number>", "Digits: 1"))
        self.assertTrue(self.fits("<bytes> of <any>", "1,024 (1.00 KiB) of x"))
        self.assertFalse(self.fits("<bytes>", "1024"))
        self.assertTrue(self.fits("<date>", "Sat Nov  1 16:10:38 2025"))
        self.assertFalse(self.fits("<seconds>", "12"))

    def test_lines_are_left_out_only_where_it_says_so(self):
        self.assertTrue(self.fits("...\nb\n...", "a\nb"))
        self.assertTrue(self.fits("a\n...\na\nb", "a\na\nc\na\nb"))
        self.assertFalse(self.fits("...\nb", "a\nb\nc"))
        self.assertFalse(self.fits("a\n...\nb\n...\nb", "a\nb"))

    def test_an_update_keeps_what_still_fits(self):
        self.assertEqual(pages.align(["x <number>", "old", "..."], ["x 7", "new", "y"]), ["x <number>", "new", "y"])
        self.assertEqual(pages.align(["...", "b <any>"], ["a", "b 1"]), ["...", "b <any>"])


class MenuEntries(unittest.TestCase):
    MAIN = ["Loaded: x", "Title:  5", "", "  1     One:   on", "        note", " 20/21  Load / Save", "", "option:"]
    INNER = MAIN[:-1] + ["option:", "Inner", "   1    One", "   0    Back", "option:"]

    def faults(self, *questions):
        entries = menu_entries.Entries()
        entries.add("page", questions)
        return [fault.split(",")[0] for fault in entries.faults()]

    def test_every_entry_must_be_chosen(self):
        self.assertEqual(self.faults((self.MAIN, "21")), ["no page chooses 1 'One' of the menu 'Title'",
                                                          "no page chooses 20 'Load / Save' of the menu 'Title'"])
        self.assertEqual(self.faults((self.MAIN, "20"), (self.MAIN + self.MAIN, "21"), (3 * self.MAIN, "1")), [])

    def test_an_answer_belongs_to_the_menu_before_it(self):
        rest = ["no page chooses 20 'Load / Save' of the menu 'Title'", "no page chooses 21 'Load / Save' of the menu 'Title'"]
        self.assertEqual(self.faults((self.MAIN, "1"), (self.INNER, "1"), (self.INNER + ["text:"], "0")),
                         ["no page chooses 0 'Back' of the menu 'Inner'"] + rest)
        # Asked again, without the menu.
        self.assertEqual(self.faults((self.MAIN, "9"), (self.MAIN, "1")), rest)

    def test_numbers_in_results_are_no_entries(self):
        self.assertEqual(menu_entries.offered(["    0  :  12", "  3.14", "  Core 0   Enabled", "  + 1/2"]), {})


class Form(unittest.TestCase):
    def page(self, text):
        with tempfile.NamedTemporaryFile("w", suffix=".page") as file:
            file.write(text)
            file.flush()
            return pages.Page(file.name)

    def test_sections_belong_to_their_run(self):
        page = self.page("Title\n== file a b.txt crlf\nx\n== arguments\none 'two three'\n== input\n1\n\n== status 1\n"
                         "== arguments\n== cuts none\n")
        self.assertEqual(page.files, [("a b.txt", "x\r\n", 0)])
        self.assertEqual(page.runs[0].arguments, ["one", "two three"])
        self.assertEqual(page.runs[0].input, ["1", ""])
        self.assertEqual([run.status for run in page.runs], [1, 0])

    def test_faults_of_a_page_are_told(self):
        for text in ("Title\n", "== status 1\n== arguments\n", "== arguments\n== screan\n",
                     "== arguments\n== status 1\n== status 1\n"):
            with self.assertRaises(pages.PageError):
                self.page(text)


if __name__ == "__main__":
    unittest.main()
