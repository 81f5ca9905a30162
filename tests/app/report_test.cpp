// What a finished run leaves behind: validation file, results for scripts, the verdict on stored digits.
#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include "app/process.h"
#include "support/sanitized.h"

namespace orvane::test {
namespace {

constexpr const char* kStoredPi = ORVANE_DIGITS_FOLDER "/Pi.txt";

Outcome run_in(const TemporaryFolder& folder, std::vector<std::string> arguments, std::string input = {}) {
  return run_orvane(std::move(arguments), {.input = std::move(input), .folder = folder.path()});
}

// Files of the folder's top whose names begin with "Validation - " and end with `extension`.
std::vector<std::string> reports(const TemporaryFolder& folder, const std::string& extension) {
  std::vector<std::string> found;
  for (const std::string& name : folder.names())
    if (name.starts_with("Validation - ") && name.ends_with(extension)) found.push_back(name);
  return found;
}

void store_pi(const TemporaryFolder& folder, const std::string& digits) {
  std::filesystem::create_directory(folder.file("Digits"));
  orl::test::write_file(folder.file("Digits/Pi.txt"), digits);
}

TEST(Report, PassesTheValidatorUntilAByteChanges) {
  TemporaryFolder folder;
  store_pi(folder, read_file(kStoredPi));
  const Outcome run = run_in(folder, {"custom", "pi", "-dec:12000", "-hex:500", "-od:0", "-TD:2"});
  ASSERT_EQ(run.status, 0) << run.output;
  const auto files = reports(folder, ".txt");
  ASSERT_EQ(files.size(), 1u);
  EXPECT_TRUE(files[0].starts_with("Validation - Pi - Chudnovsky - 12000 - "));
  EXPECT_TRUE(holds(run.output, "Validation File: " + files[0])) << run.output;
  EXPECT_TRUE(holds(run.output, "Spot Check:                 Passed - 10,000 digits")) << run.output;
  std::string text = read_file(folder.file(files[0]));
  EXPECT_TRUE(holds(text, "Spot Check:                 Passed\r\n")) << text;
  const Outcome good = run_in(folder, {"validate"}, files[0] + "\n");
  EXPECT_EQ(good.status, 0) << good.output;
  EXPECT_TRUE(holds(good.output, "Validation Format 1.3\n\nValidation Passed!")) << good.output;
  orl::test::put_byte(folder.file(files[0]), text.size() / 2, static_cast<char>(text[text.size() / 2] ^ 1));
  const Outcome bad = run_in(folder, {"validate"}, files[0] + "\n");
  EXPECT_EQ(bad.status, 1);
  EXPECT_TRUE(holds(bad.output, "Validation Failed: Invalid Hash")) << bad.output;
}

// Text and sets, both radices, by command, option and menu; a digit that changes, two that change places, one that is
// missing.
TEST(Report, IsHeldAgainstTheDigitsOfItsRun) {
  const struct {
    std::vector<std::string> options;
    bool set;
  } runs[] = {{{"-dec:12000", "-hex:500"}, false}, {{"-dec:1000001", "-hex:1000001", "-C:1000000"}, true}};
  for (const auto& row : runs) {
    if (row.set && orl::test::kSanitized) continue;
    TemporaryFolder folder;
    std::vector<std::string> arguments = {"custom", "pi", "-bbp:0"};
    arguments.insert(arguments.end(), row.options.begin(), row.options.end());
    ASSERT_EQ(run_in(folder, arguments).status, 0);
    const std::string report = reports(folder, ".txt").at(0);
    for (const std::string radix : {"Dec", "Hex"}) {
      const std::string name = "Pi - " + radix + " - Chudnovsky";
      const std::string path = row.set ? name + "/" + name + " - 0.ovd" : name + ".txt";
      SCOPED_TRACE(path);
      const auto expect = [&](int status, const char* words) {
        for (const Outcome& check : {run_in(folder, {"checkdigits", path, report}),
                                     run_in(folder, {"digitviewer", path, "-check", report}),
                                     run_in(folder, {"digitviewer"}, path + "\n6\n" + report + "\n\n\n")}) {
          EXPECT_EQ(check.status, status) << check.output;
          EXPECT_TRUE(holds(check.output, words)) << check.output;
        }
      };
      expect(0, "digits are those of the report: counts, hash and SHA-256.");
      const std::string file = folder.file(path), digits = read_file(file);
      std::string changed = digits;
      // One of the last digits, or some of the last word of a file of the set.
      changed[changed.size() - 2] ^= 1;
      orl::test::write_file(file, changed);
      expect(1, "Hash of the file: ");
      if (row.set) continue;
      const auto at =
          digits.find("14", 100) == std::string::npos ? digits.find("89", 100) : digits.find("14", 100);
      changed = digits;
      std::swap(changed[at], changed[at + 1]);
      orl::test::write_file(file, changed);
      expect(1, "SHA-256 of the file:\n    ");
      orl::test::write_file(file, digits.substr(0, digits.size() - 1));
      expect(1, "Digits of the file: ");
      orl::test::write_file(file, "4" + digits.substr(1));
      expect(1, "Hash of the file: ");
    }
  }
  TemporaryFolder folder;
  ASSERT_EQ(run_in(folder, {"custom", "pi", "-dec:100", "-od:0"}).status, 0);
  orl::test::write_file(folder.file("hex.txt"), "3.243f6a8885a308d3");
  EXPECT_TRUE(holds(run_in(folder, {"checkdigits", "hex.txt", reports(folder, ".txt").at(0)}).output,
                    "The report has no digits of this radix."));
}

TEST(Report, StandsThoughStoredDigitsDiffer) {
  const std::string pi = read_file(kStoredPi);
  // 1 is the first digit after the point; the writing of files makes no difference.
  for (const int position : {1, 7777}) {
    TemporaryFolder folder;
    std::string wrong = pi;
    char& digit = wrong[static_cast<std::size_t>(1 + position)];
    digit = digit == '5' ? '6' : '5';
    store_pi(folder, wrong);
    const Outcome run =
        run_in(folder, {"custom", "pi", "-dec:10000", position == 1 ? "-od:0" : "-od:1", "-TD:1"});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(holds(run.output, "Spot check failed at: " + std::to_string(position) + "\n")) << run.output;
    const auto files = reports(folder, ".txt");
    ASSERT_EQ(files.size(), 1u) << run.output;
    EXPECT_LT(run.output.find("Validation File: " + files[0]), run.output.find("Spot check failed at: "));
    EXPECT_TRUE(holds(read_file(folder.file(files[0])), "Spot Check:                 Failed\r\n"));
  }
}

TEST(Report, TakesNoNameTwiceAndSaysWhatItCannotCompare) {
  TemporaryFolder folder;
  for (int i = 0; i < 3; i++) {
    const Outcome run = run_in(folder, {"custom", "sqrt:3", "-dec:100", "-od:0", "-TD:1"});
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(holds(run.output, "Spot Check:                 Unavailable - Digit file not found."));
  }
  const auto files = reports(folder, ".txt");
  EXPECT_EQ(files.size(), 3u);
  for (const std::string& file : files)
    EXPECT_TRUE(holds(read_file(folder.file(file)), "Spot Check:                 Not Available\r\n"));
  EXPECT_TRUE(reports(folder, ".json").empty()) << "only on request";
}

// Console, text and JSON state the same figures, and they are those of the process.
TEST(Report, StatesOneRunsFiguresThreeTimesAlike) {
  TemporaryFolder folder;
  const Outcome run = run_in(
      folder, {"custom", "e", "-dec:3000000", "-hex:100000", "-od:1", "-json:1", "-TD:7", "-PF:pushpool"});
  ASSERT_EQ(run.status, 0) << run.output;
  const auto files = reports(folder, ".json");
  ASSERT_EQ(files.size(), 1u);
  const std::string text = files[0].substr(0, files[0].size() - 5) + ".txt";
  EXPECT_EQ(reports(folder, ".txt"), std::vector<std::string>{text});
  orl::test::write_file(folder.file("console"), run.output);
  const std::string command = "cd '" + folder.path() + "' && python3 '" ORVANE_REPORT_CHECK "' console '" +
                              text + "' '" + files[0] + "' " + std::to_string(run.user_seconds) + " " +
                              std::to_string(run.kernel_seconds) + " " +
                              std::to_string(std::thread::hardware_concurrency());
  EXPECT_EQ(std::system(command.c_str()), 0) << run.output;
}

TEST(Report, IsWrittenAsTheSchemaSays) {
  TemporaryFolder folder;
  std::vector<std::string> line = {"bench", "1M", "-json:1", "-bbp:1"};
  if (orl::test::kSanitized) line = {"custom", "pi", "-dec:10000", "-od:0", "-json:1", "-bbp:1"};
  const Outcome run = run_in(folder, line);
  ASSERT_EQ(run.status, 0) << run.output;
  const auto results = reports(folder, ".json"), files = reports(folder, ".txt");
  ASSERT_EQ(results.size(), 1u);
  const Outcome validation = run_in(folder, {"quiet:1", "validate", files[0], "-json:1"});
  EXPECT_TRUE(validation.status == 0 && holds(validation.output, "\"Passed\": true")) << validation.output;
  const Outcome digits = run_in(folder, {"bbp", "-digits:8", "-json:1"});
  EXPECT_TRUE(digits.status == 0 && holds(digits.output, "\"243f6a88\"")) << digits.output;
  orl::test::write_file(folder.file("validation"), validation.output);
  orl::test::write_file(folder.file("digits"), digits.output);
  EXPECT_EQ(std::system(("cd '" + folder.path() + "' && python3 '" ORVANE_SCHEMA_CHECK "' results '" +
                         results[0] + "' validation validation bbp digits")
                            .c_str()),
            0);
}

TEST(Report, IsNotWrittenForARunThatFailed) {
  TemporaryFolder folder;
  const Outcome run =
      run_faulty("digit words:0:100", folder.path(),
                 {"custom", "pi", "-dec:20000", "-hex:0", "-od:0", "-TD:1", "-PF:none", "-json:1"});
  EXPECT_EQ(run.status, 1) << run.output;
  EXPECT_TRUE(holds(run.output, "Checksum Mismatch")) << run.output;
  EXPECT_TRUE(reports(folder, "").empty());
}

}  // namespace
}  // namespace orvane::test
