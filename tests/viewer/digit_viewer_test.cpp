// The digit viewer as a user meets it: lines typed, the screen, and the files that come of it.
#include "viewer/digit_viewer.h"

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <sstream>

#include "digits/ovd_set.h"
#include "support/child.h"
#include "support/files.h"
#include "support/random_words.h"
#include "threads/frameworks.h"

namespace orvane {
namespace {

using orl::test::Random;
using orl::test::read_file;
using orl::test::TemporaryFolder;
using orl::test::write_file;

constexpr u64 kModulus = (u64{1} << 61) - 1;
constexpr const char* kNotAccessible = "This range of digits is not accessible.";

std::string random_digits(Random& random, unsigned radix, u64 count) {
  std::string text(count, '0');
  for (char& c : text) c = "0123456789abcdef"[random.below(radix)];
  return text;
}

// Digits, among which may be a point, as an integer modulo 2^61 - 1.
std::string hash_of(const std::string& text, unsigned radix) {
  unsigned __int128 hash = 0;
  for (const char c : text)
    if (c != '.') hash = (hash * radix + static_cast<u64>(c <= '9' ? c - '0' : c - 'a' + 10)) % kModulus;
  return std::to_string(static_cast<u64>(hash));
}

std::string with_commas(u64 value) {
  std::string text = std::to_string(value);
  for (int at = static_cast<int>(text.size()) - 3; at > 0; at -= 3) text.insert(static_cast<u64>(at), 1, ',');
  return text;
}

// What the screen shows in answer to the lines, each ended by ENTER. The user leaves by two empty lines.
std::string visit(const std::string& path, const std::string& lines, int status = 0) {
  const auto result = orl::test::run_child(path + "\n" + lines + (status == 0 ? "\n\n" : ""), [] {
    Menu_DigitViewer();
    return 0;
  });
  EXPECT_EQ(result.status, status) << result.output;
  return result.output;
}

bool shows(const std::string& screen, const std::string& text) {
  return screen.find(text) != std::string::npos;
}

// "label:   value" with any number of blanks between.
std::string value_of(const std::string& screen, const std::string& label) {
  const auto begin = screen.find(label);
  if (begin == std::string::npos) return "no " + label;
  const auto value = screen.find_first_not_of(' ', begin + label.size());
  return screen.substr(value, screen.find('\n', value) - value);
}

struct Kind {
  unsigned radix;
  std::string first;
};

class DigitViewer : public testing::TestWithParam<Kind> {
 protected:
  // A text file "digits.txt"; returns the digits after the point.
  std::string make_text(u64 count) {
    const std::string digits = random_digits(random_, GetParam().radix, count);
    write_file(folder_.file("digits.txt"), GetParam().first + digits);
    return digits;
  }
  std::string text_path() const { return folder_.file("digits.txt"); }
  // The choice, the answers before the name, then the name; into the folder.
  std::string compress(const std::string& path, const std::string& answers, const std::string& name) {
    return visit(path, answers + name + "\n" + folder_.path() + "\n");
  }
  std::string set_file(const std::string& name, u64 id) const {
    return folder_.file(name + "/" + name + " - " + std::to_string(id) + ".ovd");
  }

  Random random_;
  TemporaryFolder folder_;
};
INSTANTIATE_TEST_SUITE_P(
    Kinds, DigitViewer, testing::Values(Kind{10, "3."}, Kind{16, "1fa."}, Kind{10, "123456789012345678901."}),
    [](const auto& kind) {
      return "Radix" + std::to_string(kind.param.radix) + "Top" + std::to_string(kind.param.first.size() - 1);
    });

TEST_P(DigitViewer, ShowsRangesInRowsThatBeginAtMultiplesOf50) {
  const std::string digits = make_text(1000200);
  compress(text_path(), "3\n1000200\n1000000\n", "set");
  for (const std::string& path : {text_path(), set_file("set", 1)}) {
    SCOPED_TRACE(path);
    for (const auto& [start, count] :
         {std::pair<u64, u64>{51, 10}, {55, 6}, {1, 1}, {50, 2}, {999990, 120}, {1000200, 1}}) {
      std::string rows = "\n" + std::string((start - 1) % 50, ' ');
      for (u64 at = start; at < start + count; at++) {
        rows += digits[at - 1];
        if (at % 50 == 0 && at + 1 < start + count) rows += '\n';
      }
      const std::string screen =
          visit(path, "0\n" + std::to_string(start) + "\n" + std::to_string(count) + "\n");
      EXPECT_TRUE(shows(screen, rows + "\n")) << start << " " << count << screen;
    }
    const std::string screen = visit(path, "0\n0\n1000201\n1\n100001\n0\n100000\n");
    EXPECT_EQ(value_of(screen, "Digits after Decimal Place: "), "1,000,200");
    EXPECT_EQ(value_of(screen, "First Digits:"), GetParam().first);
    EXPECT_TRUE(shows(screen,
                      "Starting Digit: Starting Digit: Starting Digit: Digits to View: Digits to View: "
                      "Digits to View: "));
    EXPECT_TRUE(shows(screen, digits.substr(99950, 50) + "\n\n"));
  }
}

TEST_P(DigitViewer, CountsAndHashesAnyRange) {
  const std::string digits = make_text(1234567);
  const unsigned radix = GetParam().radix;
  compress(text_path(), "3\n1234567\n0\n", "one");
  for (const std::string& path : {text_path(), folder_.file("one - 0.ovd")}) {
    for (const auto& [start, end] : {std::pair<u64, u64>{1, 1234567}, {1, 1}, {77, 1000000}}) {
      SCOPED_TRACE(path + " " + std::to_string(start) + " " + std::to_string(end));
      const std::string screen =
          visit(path, "1\n" + std::to_string(start) + "\n" + std::to_string(end) + "\n");
      const std::string range = digits.substr(start - 1, end - start + 1);
      EXPECT_EQ(value_of(screen, "Processing "), with_commas(end - start + 1) + " digits..");
      EXPECT_EQ(value_of(screen, "Current Offset:"), with_commas(end));
      EXPECT_EQ(value_of(screen, "Hash(" + std::to_string(start) + " - current):"), hash_of(range, radix));
      EXPECT_EQ(value_of(screen, "Hash(start - current):"),
                start == 1 ? hash_of(GetParam().first + range, radix) : "no Hash(start - current):");
      std::string counts = "Digit Counts (" + std::to_string(start) + " - " + std::to_string(end) + "):\n";
      const u64 width = with_commas(end).size();
      for (unsigned digit = 0; digit < radix; digit++) {
        const char c = "0123456789abcdef"[digit];
        std::string count = with_commas(static_cast<u64>(std::count(range.begin(), range.end(), c)));
        count.insert(0, width - count.size(), ' ');
        counts += std::string("    ") + c + "  :  " + count + "\n";
      }
      EXPECT_TRUE(shows(screen, counts)) << counts << screen;
    }
  }
}

TEST_P(DigitViewer, CompressesAndExtractsWithoutChange) {
  const std::string digits = make_text(2500001);
  compress(text_path(), "3\n2500001\n1000000\n", "a");
  // Another size, from any file of the set; one file; back to text.
  compress(set_file("a", 2), "3\n2500001\n1234567\n", "b");
  compress(set_file("b", 0), "3\n2500001\n0\n", "c");
  const std::string back = folder_.file("back");
  EXPECT_TRUE(shows(visit(folder_.file("c - 0.ovd"), "2\n1\n2500001\n" + back + "\n"),
                    "2,500,001 digits written.\nPath: " + back + ".txt\n"));
  EXPECT_TRUE(read_file(back + ".txt") == read_file(text_path()));
  // The first digits only, and digits from the middle.
  compress(set_file("b", 0), "3\n1500000\n1000000\n", "d");
  EXPECT_EQ(value_of(visit(set_file("d", 0), "1\n1\n1500000\n"), "Hash(start - current):"),
            hash_of(GetParam().first + digits.substr(0, 1500000), GetParam().radix));
  visit(set_file("a", 0), "2\n999999\n2000002\n" + folder_.file("middle.txt") + "\n");
  EXPECT_TRUE(read_file(folder_.file("middle.txt")) == "0." + digits.substr(999998, 1000004));
  visit(text_path(), "2\n2\n9\n" + folder_.file("second.txt") + "\n");
  EXPECT_EQ(read_file(folder_.file("second.txt")), "0." + digits.substr(1, 8));
}

TEST_P(DigitViewer, CompressesInSharesThatMakeTheSameFiles) {
  make_text(4200000);
  compress(text_path(), "3\n4200000\n1000000\n", "whole");
  compress(text_path(), "4\n1000000\n3\n4\n", "shares");
  EXPECT_FALSE(std::filesystem::exists(set_file("shares", 2)));
  EXPECT_TRUE(shows(compress(text_path(), "4\n1000000\n3\n2\n", ""), "No Digits to Recompress."));
  compress(set_file("whole", 4), "4\n1000000\n0\n0\n", "shares");
  compress(set_file("whole", 0), "4\n1000000\n1\n2\n", "shares");
  for (u64 id = 0; id < 5; id++)
    EXPECT_TRUE(read_file(set_file("shares", id)) == read_file(set_file("whole", id))) << id;
  // A share of another cut has no place there.
  std::filesystem::remove(set_file("shares", 1));
  const std::string screen = compress(text_path(), "4\n1000001\n1\n1\n", "shares");
  EXPECT_TRUE(shows(screen, "The folder holds files of another set of this name.")) << screen;
  EXPECT_FALSE(std::filesystem::exists(set_file("shares", 1)));
}

// What a line prints stands on the menu's screen, and it leaves the same files.
TEST_P(DigitViewer, DoesByOptionsWhatTheMenuDoes) {
  make_text(3000001);
  for (const char* name : {"menu", "line"}) std::filesystem::create_directory(folder_.file(name));
  const auto by_line = [&](const std::string& path, const ViewerTask& task, int status = 0) {
    const auto result = orl::test::run_child("", [&] { return run_viewer_task(path, task); });
    EXPECT_EQ(result.status, status) << result.output;
    return result.output;
  };
  const auto expect_on_screen = [&](const std::string& lines, const std::string& screen) {
    std::istringstream in(lines);
    for (std::string line; std::getline(in, line);) {
      if (const auto at = line.find("/line/"); at != std::string::npos) line.replace(at, 6, "/menu/");
      EXPECT_TRUE(shows(screen, line + "\n")) << line << "\n" << screen;
    }
  };
  const std::string from_menu = folder_.file("menu"), from_line = folder_.file("line");
  expect_on_screen(
      by_line(text_path(),
              {.start = 1001, .end = 2000000, .view = 200, .stats = true, .extract = from_line + "/part"}),
      visit(text_path(), "0\n1001\n200\n1\n1001\n2000000\n2\n1001\n2000000\n" + from_menu + "/part\n"));
  EXPECT_TRUE(read_file(from_line + "/part.txt") == read_file(from_menu + "/part.txt"));
  // All of them, a few, in one file, in shares; the name is that of the file, or another.
  const std::string tail = "\n" + from_menu + "\n";
  expect_on_screen(by_line(text_path(), {.digits_per_file = 1000000, .folder = from_line}),
                   visit(text_path(), "3\n3000001\n1000000\ndigits" + tail));
  expect_on_screen(by_line(from_line + "/digits/digits - 3.ovd",
                           {.end = 2000000, .digits_per_file = orl::kSingleFile, .folder = from_line}),
                   visit(text_path(), "3\n2000000\n0\ndigits" + tail));
  expect_on_screen(by_line(from_line + "/digits - 0.ovd",
                           {.digits_per_file = 1000001, .start_id = 1, .name = "share", .folder = from_line}),
                   visit(from_menu + "/digits - 0.ovd", "4\n1000001\n1\n1\nshare" + tail));
  std::vector<std::string> names = folder_.names();
  std::erase_if(
      names, [](const std::string& name) { return !name.starts_with("line/") || !name.ends_with(".ovd"); });
  EXPECT_EQ(names.size(), 6u);
  for (const std::string& name : names)
    EXPECT_TRUE(read_file(folder_.file(name)) == read_file(folder_.file("menu" + name.substr(4)))) << name;

  std::filesystem::create_directory(folder_.file("far"));
  std::filesystem::rename(from_line + "/digits/digits - 2.ovd", folder_.file("far/digits - 2.ovd"));
  const std::string first = from_line + "/digits/digits - 0.ovd";
  EXPECT_TRUE(shows(by_line(first, {.start = 2000001, .view = 10}, 1), kNotAccessible));
  by_line(first, {.start = 2000001, .view = 10, .search_folders = {folder_.file("far")}});
}

TEST_P(DigitViewer, WorksAroundAMissingFile) {
  const std::string digits = make_text(3000000);
  compress(text_path(), "3\n3000000\n1000000\n", "set");
  std::filesystem::create_directory(folder_.file("far"));
  std::filesystem::rename(set_file("set", 1), folder_.file("far/set - 1.ovd"));
  const std::string missing =
      "The following needed files are missing or inaccessible:\n" + set_file("set", 1) + "\n";

  std::string screen = visit(set_file("set", 2), "0\n1\n50\n0\n999991\n20\n0\n2000051\n50\n");
  EXPECT_TRUE(shows(screen, digits.substr(0, 50)));
  EXPECT_TRUE(shows(screen, missing));
  EXPECT_TRUE(shows(screen, kNotAccessible));
  EXPECT_TRUE(shows(screen, digits.substr(2000050, 50)));

  const std::string out = folder_.file("out.txt");
  screen = visit(set_file("set", 0), "1\n1\n3000000\n1\n1\n1000000\n2\n1\n3000000\n" + out + "\n");
  EXPECT_TRUE(shows(screen, missing));
  EXPECT_TRUE(shows(screen, "Missing required files."));
  EXPECT_EQ(value_of(screen, "Hash(1 - current):"), hash_of(digits.substr(0, 1000000), GetParam().radix));
  EXPECT_FALSE(std::filesystem::exists(out));

  const std::string far = "5\n" + folder_.file("nowhere") + "\n5\n" + folder_.file("far") + "\n";
  screen = visit(set_file("set", 0), far + "2\n1\n3000000\n" + out + "\n");
  EXPECT_TRUE(shows(screen, "There is no such folder: " + folder_.file("nowhere")));
  EXPECT_TRUE(
      shows(screen, "Search paths:\n    " + folder_.file("set/") + "\n    " + folder_.file("far/\n")));
  EXPECT_TRUE(read_file(out) == read_file(text_path()));
}

TEST_P(DigitViewer, SaysThatDigitsAreCorrupt) {
  make_text(5000000);  // more than a block, so that a pass is on its way
  orl::test::put_byte(text_path(), 4500000, 'x');
  std::string screen = visit(text_path(), "0\n1\n100\n0\n4499900\n200\n1\n1\n5000000\n");
  EXPECT_TRUE(shows(screen, "Invalid Digit"));
  EXPECT_TRUE(shows(screen, kNotAccessible));
  EXPECT_FALSE(shows(screen, "Digit Counts (1 - 5000000)")) << "of digits that are none";
  const auto before = folder_.names();
  screen = compress(text_path(), "3\n5000000\n0\n", "set");
  EXPECT_TRUE(shows(screen, "Invalid Digit"));
  EXPECT_EQ(folder_.names(), before) << "nothing may be left";
}

TEST_P(DigitViewer, WritesOverNothing) {
  make_text(1000000);
  compress(text_path(), "3\n1000000\n0\n", "one");
  const std::string path = folder_.file("one - 0.ovd"), before = read_file(path);
  for (const std::string& screen : {visit(path, "2\n1\n100\n" + folder_.file("digits") + "\n"),
                                    compress(text_path(), "3\n1000000\n0\n", "one")})
    EXPECT_TRUE(shows(screen, "This file exists already, and nothing is written over.")) << screen;
  EXPECT_EQ(read_file(text_path()).size(), 1000000 + GetParam().first.size());
  EXPECT_TRUE(read_file(path) == before);
}

TEST_P(DigitViewer, ReadsStreamsWithoutAnEnd) {
  const u64 size = 1000000;
  const std::string digits = random_digits(random_, GetParam().radix, 2 * size);
  std::vector<orl::u8> raw(digits.size());
  for (u64 i = 0; i < digits.size(); i++)
    raw[i] = static_cast<orl::u8>(digits[i] <= '9' ? digits[i] - '0' : digits[i] - 'a' + 10);
  {
    orl::BasicOvdSetWriter writer(folder_.path(), "endless", GetParam().first, GetParam().radix, size, 0);
    std::vector<u64> memory(writer.buffer_bytes(raw.size()) / 8 + 8);
    const auto aligned = (reinterpret_cast<std::uintptr_t>(memory.data()) + 63) / 64 * 64;
    const auto framework = orl::create_framework("none");
    writer.store_digits(raw.data(), 0, raw.size(),
                        {reinterpret_cast<void*>(aligned), writer.buffer_bytes(raw.size())}, {*framework, 1});
    writer.close_and_get_basic_reader();
  }
  const std::string path = set_file("endless", 1);
  std::string screen = visit(path, "0\n1999901\n100\n0\n18446744073709551615\n2\n1\n0\n1999999\n2\n");
  EXPECT_EQ(value_of(screen, "Digits after Decimal Place: "), "Unknown - Extended File Format");
  EXPECT_TRUE(shows(screen, digits.substr(1999900, 50) + "\n" + digits.substr(1999950) + "\n"));
  // The last digit that a 64-bit index can name, then a range over the end of what is there.
  EXPECT_TRUE(shows(screen, "endless - 18446744073709.ovd\n")) << screen;
  EXPECT_TRUE(shows(screen, kNotAccessible));
  compress(path, "4\n2000000\n0\n0\n", "share");
  compress(path, "3\n2000000\n0\n", "whole");
  EXPECT_EQ(value_of(visit(set_file("share", 0), ""), "Digits after Decimal Place: "),
            "Unknown - Extended File Format");
  for (const std::string& copy : {set_file("share", 0), folder_.file("whole - 0.ovd")})
    EXPECT_EQ(value_of(visit(copy, "1\n1\n2000000\n"), "Hash(start - current):"),
              hash_of(GetParam().first + digits, GetParam().radix));
}

TEST(DigitViewerMenu, AsksForSetsOfEnoughDigits) {
  TemporaryFolder folder;
  const std::string few = folder.file("few.txt"), many = folder.file("many.txt");
  write_file(few, "3." + std::string(999999, '1'));
  write_file(many, "3." + std::string(1000000, '1') + "\n");
  const std::string request = "Please select at least 1,000,000 digits.";
  for (const char* choice : {"3\n", "4\n"}) EXPECT_TRUE(shows(visit(few, choice), request));
  const std::string screen =
      visit(many, "3\n1000001\n999999\n1000000\n999999\n1000000\n\n" + folder.path() + "\n");
  EXPECT_TRUE(
      shows(screen, "Ending Digit:   Ending Digit:   " + request + "\nEnding Digit:   Digits per file"));
  EXPECT_TRUE(shows(screen, "Too few digits to compress.\nDigits per file (0 for single file): "));
  EXPECT_TRUE(std::filesystem::exists(folder.file("Name/Name - 0.ovd")));
  EXPECT_EQ(value_of(screen, "Digits after Decimal Place: "), "1,000,000") << "the line end is no digit";
}

TEST(DigitViewerMenu, SaysWhyAFileCannotBeOpened) {
  TemporaryFolder folder;
  write_file(folder.file("pointless.txt"), std::string(100, '1'));
  write_file(folder.file("digits.ovd"), std::string(200000, '1'));
  for (const auto& [path, text] : std::map<std::string, std::string>{
           {"digits", "No Extension found."},
           {"../digits", "No Extension found."},
           {folder.file("digits.pdf"), "Unrecognized Extension: .pdf"},
           {folder.file("digits.Ovd"), "The files of a set have names in .ovd."},
           {folder.file("none.TXT"), "Path does not exist."},
           {folder.file("missing.txt"), "Path does not exist."},
           {folder.file("pointless.txt"),
            "A decimal place was not found within the first 63 bytes of the file."},
           {folder.file("digits.ovd"), "This is no compressed digit file"}}) {
    const std::string screen = visit(path, "", 1);
    EXPECT_TRUE(shows(screen, text)) << screen;
  }
}

}  // namespace
}  // namespace orvane
