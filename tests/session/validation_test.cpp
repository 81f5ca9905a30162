#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <thread>

#include "config/parser.h"
#include "config/writer.h"
#include "core/exceptions.h"
#include "digits/sha256.h"
#include "session/run_results.h"
#include "session/user_name.h"
#include "session/validation_file.h"
#include "support/files.h"

namespace orvane {
namespace {

OutputResult sample_output(u32 radix, u64 digits) {
  OutputResult result;
  result.radix = radix;
  result.digit_count = digits;
  result.first_digits = "3.";
  result.hash = 12345678901234567;
  std::vector<orl::u8> raw(digits);
  for (u64 i = 0; i < digits; i++) raw[i] = static_cast<orl::u8>(i % radix);
  result.counts = orl::DigitCounts(radix);
  result.counts.append(raw.data(), digits);
  result.last_digits.set(radix, raw.data(), digits);
  if (radix == 10) result.sha256.emplace(1, digits, std::string(64, 'a'));
  return result;
}

RunReport sample_report() {
  RunReport report;
  report.user = "Ada";
  report.system = {{"Operating System:", {{"", "Linux"}}},
                   {"Processor(s):", {{"Name:", "A \"fast\" one"}, {"Logical Cores:", "2"}}},
                   {"Memory:", {{"DIMM:", "1"}, {"DIMM:", "2"}}}};
  report.constant = "Sqrt(2)";
  report.constant_long = "Sqrt(2)";
  report.algorithm = "Newton";
  report.algorithm_long = "Newton's Method";
  report.decimal_digits = 1020;
  report.hexadecimal_digits = 160;
  report.mode = "Ram Only";
  report.threading = "None";
  report.working_bytes = 4096;
  report.table_bytes = 1024;
  report.configuration.add_string("Path", "C:\\a \"quoted\" name");
  report.timer.stop();
  report.computation_seconds = 0.25;
  report.dec = sample_output(10, 1020);
  report.hex = sample_output(16, 160);
  report.clocks = {orl::ClockCheck::kPassed, orl::ClockCheck::kUnableToValidate, "tsc", {"a", "b", "c"}};
  report.events = "Sat Nov 21 16:00:00 2026    Begin Computation\r\n";
  return report;
}

// The text with its closing hash made anew: what somebody who changes a file on purpose can do.
std::string closed_again(std::string text) {
  text.resize(text.size() - 66);
  return text + orl::sha256(text) + "\r\n";
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  const auto at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

Validation outcome(const std::string& text) { return check_validation_text(text).outcome; }

TEST(ValidationFile, HoldsItsSectionsInOrder) {
  RunReport report = sample_report();
  report.disk = {{10, 20, 30}};
  const std::string text = validation_text(report);
  std::size_t at = 0;
  for (const char* line : {
           "Benchmark Validation File - DO NOT MODIFY! If you do, it will fail validation.\r\n\r\n",
           "Validation Version:    1.3\r\n\r\n",
           "Program:               Orvane v",
           "Tuning:                ",
           "User:                  Ada\r\n\r\n",
           "Operating System:      Linux\r\n",
           "Processor(s):\r\n",
           "  Name:                A \"fast\" one\r\n",
           "Constant:              Sqrt(2)\r\n",
           "Algorithm:             Newton's Method\r\n",
           "Decimal Digits:        1,020\r\n",
           "Hexadecimal Digits:    160\r\n",
           "Computation Mode:      Ram Only\r\n",
           "Threading Mode:        None\r\n",
           "Working Memory:        4,096 (4.00 KiB)\r\n",
           "Total Memory:          5,120 (5.00 KiB)\r\n",
           "Logical Peak Disk Usage:       10",
           "Logical Disk Bytes Read:       20",
           "Logical Disk Bytes Written:    30",
           "Configuration Dump:\r\n{\r\n    Path : \"C:\\\\a \\\"quoted\\\" name\"\r\n}\r\n",
           "Event Log:\r\nSat Nov 21 16:00:00 2026    Begin Computation\r\n",
           "Start Date:            ",
           "End Date:              ",
           "Total Computation Time:    0.250 seconds\r\n",
           "Start-to-End Wall Time:    ",
           "CPU Utilization:        ",
           "Multi-core Efficiency:  ",
           "Last Decimal Digits:\r\n",
           "0123456789 0123456789 0123456789 0123456789 0123456789  :  1,020\r\n",
           "Last Hexadecimal Digits:\r\n",
           "SHA256-dec(1 - 1020) = aaaa",
           "Dec Counts: 102 102 102 102 102 102 102 102 102 102\r\n",
           "Hex Counts: 10 10 10 10 10 10 10 10 10 10 10 10 10 10 10 10\r\n",
           "Dec Hash: Floor(|x| * 10^dec) mod (2^61 - 1) = 12345678901234567\r\n",
           "Hex Hash: Floor(|x| * 16^hex) mod (2^61 - 1) = 12345678901234567\r\n",
           "Spot Check:                 Not Available\r\n",
           "Timer Sanity Check:         Passed\r\n",
           "Frequency Sanity Check:     Unable to Validate\r\n",
           "Reference Clock:            tsc\r\n",
           "Reference Clock 0:          a\r\n",
           "Reference Clock 1:          b\r\n",
           "Reference Clock 2:          c\r\n",
           "Is Debugger Present:        No\r\n",
           "Is Contiguous:              Yes\r\n",
           "----\r\n",
       }) {
    const auto found = text.find(std::string("\n") + line, at == 0 ? 0 : at - 1);
    const bool first = at == 0 && text.starts_with(line);
    ASSERT_TRUE(first || found != std::string::npos) << line;
    at = first ? 1 : found + 2;
  }
  for (std::size_t i = 1; i < text.size(); i++)
    ASSERT_EQ(text[i] == '\n', text[i - 1] == '\r') << "a line end that is not CR LF at " << i;
  EXPECT_EQ(outcome(text), Validation::kPassed);
}

TEST(ValidationFile, SaysWhereClocksProveNothing) {
  RunReport report = sample_report();
  report.contiguous = false;
  const std::string text = validation_text(report);
  EXPECT_NE(text.find("Timer Sanity Check:         Disabled due to checkpoint restart\r\n"),
            std::string::npos);
  EXPECT_NE(text.find("Is Contiguous:              No\r\n"), std::string::npos);
}

TEST(ValidationFile, IsNamedAfterTheRun) {
  RunReport report = sample_report();
  const std::string stamp = report.timer.end_stamp();
  EXPECT_EQ(validation_stem(report), "Validation - Sqrt(2) - Newton - 1020 - " + stamp);
  report.constant = "Custom - a/b\n";
  EXPECT_EQ(validation_stem(report), "Validation - Custom - a_b_ - Newton - 1020 - " + stamp);
}

TEST(Validator, FindsAnyChangedByte) {
  const std::string text = validation_text(sample_report());
  ASSERT_EQ(outcome(text), Validation::kPassed);
  std::mt19937 random(20261121);
  for (int i = 0; i < 500; i++) {
    std::string flipped = text;
    const std::size_t at = random() % text.size();
    const char byte = static_cast<char>(1 + random() % 255);
    flipped[at] = static_cast<char>(flipped[at] ^ byte);
    EXPECT_NE(outcome(flipped), Validation::kPassed) << "byte " << at << " ^ " << static_cast<int>(byte);
  }
  // The end is where a form that is not strict would let something pass.
  for (std::size_t at = text.size() - 72; at < text.size(); at++)
    for (int bit = 0; bit < 8; bit++) {
      std::string flipped = text;
      flipped[at] = static_cast<char>(flipped[at] ^ (1 << bit));
      EXPECT_NE(outcome(flipped), Validation::kPassed) << "byte " << at << " bit " << bit;
    }
}

TEST(Validator, FindsMissingAndFurtherBytes) {
  const std::string text = validation_text(sample_report());
  for (std::size_t length = 0; length < text.size(); length += 1 + length / 16)
    EXPECT_NE(outcome(text.substr(0, length)), Validation::kPassed) << length;
  for (std::size_t missing = 1; missing <= 80; missing++)
    EXPECT_NE(outcome(text.substr(0, text.size() - missing)), Validation::kPassed) << missing;
  for (const char* more : {" ", "\n", "\r\n", "----\r\n", "x"}) {
    EXPECT_NE(outcome(text + more), Validation::kPassed);
    EXPECT_NE(outcome(more + text), Validation::kPassed);
  }
  EXPECT_NE(outcome(text + std::string(1, '\0')), Validation::kPassed);
  std::string unix_ends = text;
  std::erase(unix_ends, '\r');
  EXPECT_NE(outcome(unix_ends), Validation::kPassed);
  EXPECT_NE(outcome(text.substr(0, text.size() - 2) + "\n"), Validation::kPassed);
}

TEST(Validator, AnswersByVersionAndForm) {
  const std::string text = validation_text(sample_report()), version = "Validation Version:    1.3";
  const auto with_version = [&](const std::string& line) {
    return outcome(closed_again(replaced(text, version, line)));
  };
  EXPECT_EQ(with_version("Validation Version:    1.2"), Validation::kPassed);
  EXPECT_EQ(with_version("Validation Version:    1.1"), Validation::kNoLongerSupported);
  EXPECT_EQ(with_version("File Format: 1.0"), Validation::kNoLongerSupported);
  EXPECT_EQ(with_version("File Format  1.4"), Validation::kTooNew);
  EXPECT_EQ(with_version("no version"), Validation::kInvalidFile);
  EXPECT_EQ(outcome(""), Validation::kInvalidFile);
  EXPECT_EQ(outcome(replaced(text, "Decimal Digits:        1,020", "Decimal Digits:        9,020")),
            Validation::kInvalidHash);
  // Whoever makes the hash anew is caught only where the contents contradict each other.
  EXPECT_EQ(
      outcome(closed_again(replaced(text, "Decimal Digits:        1,020", "Decimal Digits:        9,020"))),
      Validation::kTampered);
  EXPECT_EQ(outcome(closed_again(replaced(text, "Hex Counts: 10 10", "Hex Counts: 10 11"))),
            Validation::kTampered);
  EXPECT_EQ(outcome(closed_again(replaced(text, "Event Log:", "Log:"))), Validation::kTampered);
  const std::string working = "Working Memory:        4,096 (4.00 KiB)\r\n",
                    total = "Total Memory:          5,120 (5.00 KiB)\r\n";
  EXPECT_EQ(outcome(closed_again(replaced(text, working + total, total + working))), Validation::kTampered);
  EXPECT_EQ(outcome(closed_again(replaced(text, "User:  ", "User "))), Validation::kTampered);
}

TEST(Validator, NamesTheChecksThatTheFileReportsAsFailed) {
  RunReport report = sample_report();
  EXPECT_TRUE(check_validation_text(validation_text(report)).failed_checks.empty());
  report.spot_check.result = SpotCheck::kFailed;
  report.clocks.frequency = orl::ClockCheck::kFailed;
  EXPECT_EQ(check_validation_text(validation_text(report)).failed_checks,
            (std::vector<std::string>{"Spot Check", "Frequency Sanity Check"}));
}

TEST(Results, ReadBackAsTheSameStrictJson) {
  RunReport report = sample_report();
  report.user = "tab\there, \x01, a broken \xc3( and a good \xc3\xa4, cut \xe2\x82, \xed\xa0\x80";
  report.events = "first\r\nsecond \"quoted\" \\\r\n";
  report.spot_check = {SpotCheck::kFailed, "Digits/Sqrt(2).txt", 41, 42};
  while (report.timer.iso_start_date() == report.timer.iso_end_date()) {  // dates are whole seconds
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    report.timer.stop();
  }
  const orl::Object object = results_object(report, "Validation - x.txt");
  const auto parsed = orl::parse_json(results_json(object));
  EXPECT_TRUE(orl::same_content(*parsed, *orl::parse_json(orl::to_json(*parsed))));
  const orl::Object& root = orl::root_object(*parsed);
  const std::string bad = "\xef\xbf\xbd";
  EXPECT_EQ(root.get_string("User"), "tab" + bad + "here, " + bad + ", a broken " + bad +
                                         "( and a good \xc3\xa4, cut " + bad + bad + ", " + bad + bad + bad);
  EXPECT_EQ(root.get_object("ConfigurationDump").get_string("Path"), "C:\\a \"quoted\" name");
  EXPECT_EQ(root.get_array("EventLog").size(), 2u);
  const orl::Object& times = root.get_object("Times");
  EXPECT_EQ(times.get_integer("ComputationMicroseconds"), 250000);
  EXPECT_EQ(times.get_string("StartDate"), report.timer.iso_start_date());
  EXPECT_EQ(times.get_string("EndDate"), report.timer.iso_end_date());
  EXPECT_EQ(root.get_object("DecimalDigits").get_integer("Digits"), 1020);
  EXPECT_EQ(root.get_object("DecimalDigits").get_integer("Hash"), 12345678901234567);
  EXPECT_EQ(root.get_object("HexadecimalDigits").get_array("Counts").size(), 16u);
  EXPECT_EQ(root.get_object("Checks").get_string("SpotCheck"), "Failed");
  EXPECT_EQ(root.get_object("Checks").get_integer("SpotCheckPosition"), 42);
}

TEST(UserName, StandsBehindItsTag) {
  orl::test::TemporaryFolder folder;
  const std::string place = folder.file(kUserFile);
  EXPECT_EQ(user_name(place), "None");
  orl::test::write_file(place, "Your name:\r\nUsername:  Ada  Lovelace \t\r\nmore\r\n");
  EXPECT_EQ(user_name(place), "Ada  Lovelace");
  orl::test::write_file(place, "Username:");
  EXPECT_EQ(user_name(place), "None");
  orl::test::write_file(place, "User: Ada");
  try {
    user_name(place);
    FAIL();
  } catch (const orl::ParseException& e) {
    EXPECT_TRUE(e.message().starts_with("Tag not found in Username.txt")) << e.message();
  }
}

}  // namespace
}  // namespace orvane
