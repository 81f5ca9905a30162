
#include <gtest/gtest.h>

#include <cwchar>
#include <limits>
#include <sstream>

#include "console/console.h"
#include "core/settings.h"
#include "support/child.h"

namespace orl::test {
namespace {

TEST(Console, EveryColourLetterHasItsSequence) {
  const ChildResult result = run_child("", [] {
    settings().colors_enabled = true;
    for (const char letter : std::string("BGPRTYbgprtyw? ")) console::print("x", letter);
    console::reset_colours();
    return 0;
  });
  EXPECT_EQ(result.output,
            "\033[01;34mx\033[01;32mx\033[01;35mx\033[01;31mx\033[01;36mx\033[01;33mx"
            "\033[22;34mx\033[22;32mx\033[22;35mx\033[22;31mx\033[22;36mx\033[22;33mx"
            "\033[01;37m\033[0mx\033[01;37m\033[0mxx\033[39;49m\033[0m");
}

TEST(Console, NoEscapeSequenceGoesOutWithColoursOff) {
  const ChildResult result = run_child("3\n\n", [] {
    console::println("a", 'R');
    console::set_colour('G');
    console::label_value("b: ", "c", 'Y');
    console::print_padded(5, "d", 'T');
    console::print_number(6, 1234, 'G');
    console::read_bounded("? ", 0, 7, 'G');
    settings().pause_given = true;
    console::pause();
    console::reset_colours();
    return 0;
  });
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "a\nb: cd     1,234? Press ENTER to continue . . .");
}

TEST(Console, PaddingNeverCutsAndReturnsWhatWasPrinted) {
  const ChildResult result = run_child("", [] {
    const bool right = console::print_padded(4, "ab") == 4 && console::print_padded(2, "abcdef") == 6 &&
                       console::print_padded(200, "x") == 200 && console::println("abc") == 3;
    return right ? 0 : 1;
  });
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "ab  abcdefx" + std::string(199, ' ') + "abc\n");
}

TEST(Console, EveryPrintCallCountsOnce) {
  const u64 before = console::print_calls();
  testing::internal::CaptureStdout();
  console::print("");
  console::println("");
  console::newline();
  console::print_padded(3, "");
  console::set_colour('w');
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(console::print_calls(), before + 4);
}

TEST(ConsoleReaders, BoundedReaderAsksAgainWithoutAWord) {
  // Out of range, no number, empty, past 64 bits, negative; then one that has text behind it, and one in blanks.
  const ChildResult result = run_child("9\nx\n\n99999999999999999999999\n-1\n7 seven\n  7 \r\n", [] {
    return static_cast<int>(console::read_bounded("option: ", 0, 7, 'G'));
  });
  EXPECT_EQ(result.status, 7);
  EXPECT_EQ(
      result.output,
      "option: option: option: option: option: option: \"7\" was read, but not the \" seven\" behind it.\n"
      "Please enter a whole number; K, M, B and T are 10^3, 10^6, 10^9 and 10^12.\noption: ");
}

TEST(ConsoleReaders, AllOnesIsNoBound) {
  const ChildResult result = run_child("18446744073709551615\n", [] {
    const u64 all_ones = std::numeric_limits<u64>::max();
    return console::read_bounded("", 1, all_ones) == all_ones ? 3 : 4;
  });
  EXPECT_EQ(result.status, 3);
}

TEST(ConsoleReaders, ColourOfANumberIsTakenBackUnlessItIsTheBlank) {
  const ChildResult result = run_child("1\n2\n", [] {
    settings().colors_enabled = true;
    console::read_bounded("a", 0, 7, 'G');
    console::read_bounded("b", 0, 7, ' ');
    return 0;
  });
  EXPECT_EQ(result.output, "\033[01;37m\033[0ma\033[01;32m\033[01;37m\033[0mb");
}

TEST(ConsoleReaders, EndOfInputEndsTheProgramExceptAtThePromptForEnter) {
  const ChildResult enter = run_child("", [] {
    console::pause();
    return 5;
  });
  EXPECT_EQ(enter.status, 5);
  EXPECT_EQ(enter.output, "");  // nobody is there to press it
  const ChildResult number = run_child("99\n", [] {
    console::read_bounded("? ", 0, 7);
    return 5;
  });
  EXPECT_EQ(number.status, 1);
  EXPECT_EQ(number.output, "? ? \nThe input has ended before this was answered.\n");  // no prompt for ENTER
  const ChildResult line = run_child("", [] {
    console::read_line("path: ");
    return 5;
  });
  EXPECT_EQ(line.status, 1);
}

TEST(ConsoleReaders, LastLineNeedsNoLineFeedAndLosesItsCarriageReturn) {
  const ChildResult result = run_child("first\r\nlast one", [] {
    const bool right = console::read_line("") == "first" && console::read_line("") == "last one";
    return right ? 0 : 9;
  });
  EXPECT_EQ(result.status, 0);
}

TEST(Console, WideOutputCarriesTheSameText) {
  const ChildResult result = run_child("", [] {
    std::fwide(stdout, 1);
    console::println("wide", 'w');
    return 0;
  });
  EXPECT_EQ(result.output, "wide\n");
}

TEST(Console, LiveLineIsTakenAwayBeforeAnythingElseIsPrinted) {
  const ChildResult result = run_child(
      "",
      [] {
        console::newline();
        console::show_live_line("Writing...  ", "1,234", "  digits");
        console::show_live_line("Short");
        console::println("permanent");
        console::print("half a line");
        console::show_live_line("not here");
        return 0;
      },
      ChildOutput::kTerminal);
  const std::string longest = "Writing...  1,234  digits";
  EXPECT_EQ(result.output, "\n\r" + longest + "\rShort" + std::string(longest.size() - 5, ' ') + "\r" +
                               std::string(longest.size(), ' ') + "\rpermanent\nhalf a line");
}

TEST(Console, LiveLineGoesToTerminalsOnly) {
  const ChildResult result = run_child("", [] {
    console::show_live_line("Writing...  ");
    console::println("permanent");
    return 0;
  });
  EXPECT_EQ(result.output, "permanent\n");
}

}  // namespace
}  // namespace orl::test
