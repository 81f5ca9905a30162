// A flipped bit, wherever it strikes, ends the run with status 1, plain words and those of the check that found it. It leaves
// an entry in the event log, and nothing else.
#include <gtest/gtest.h>

#include <algorithm>

#include "app/process.h"

namespace orvane::test {
namespace {

using Arguments = std::vector<std::string>;

Outcome run_with_fault(const std::string& fault, const std::string& folder, const Arguments& more = {}) {
  Arguments arguments = {"custom", "pi", "-dec:300000", "-TD:2", "-PF:pushpool", "-o", folder};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return run_faulty(fault, folder, arguments);
}

bool looks_finished(const std::string& name) {
  return (name.ends_with(".txt") || name.ends_with(".ovd")) &&
         name.find(" (incomplete).") == std::string::npos;
}

// What a run is asked for; its digit files are written where nothing else is said.
const Arguments kDecimal = {"-hex:0"}, kNoFiles = {"-hex:100000", "-od:0"}, kBoth = {"-hex:100000", "-od:1"},
                kNoProof = {"-verify:0"};

struct Strike {
  const char* site;
  std::vector<int> visits;
  std::vector<const char*> words;  // any of them
  std::vector<Arguments> runs = {kDecimal, kNoFiles, kBoth};
};

const char* first_found(const std::string& output, const std::vector<const char*>& words) {
  const auto found =
      std::find_if(words.begin(), words.end(), [&](const char* word) { return holds(output, word); });
  return found == words.end() ? "" : *found;
}

// Single bits anywhere between the leaves and the files. A row for each step that something could change.
TEST(FlippedBit, IsFoundWhereverItStrikes) {
  const char* const redundancy = "Modular Redundancy Check Failed";
  const char* const data = "Data Corruption Detected: Checksum Mismatch";
  const char* const conversion = "Base Conversion Failed: Checksum Mismatch";
  const Strike strikes[] = {
      {"merge operand", {0, 1, 7, 40, 100}, {redundancy}, {kDecimal}},
      {"merge result", {0, 1, 7, 40, 100}, {redundancy}, {kDecimal}},
      {"division operand", {0, 1}, {"Checksum Mismatch. Division failed."}, {kDecimal}},
      {"cross product", {0, 1}, {"Checksum Mismatch. Multiplication Failed."}, {kDecimal}},
      {"conversion power", {0, 1, 3}, {"Power Hash Mismatch", "Mismatching exponents."}, {kDecimal}},
      // As the constant's plan leaves it; in its layout; after the conversion.
      {"binary number", {0, 1, 2}, {data}},
      // Nothing behind the layout looks at the number again.
      {"binary number", {0}, {data}, {kNoProof}},
      // The first radix and, where there are two, the decimal digits.
      {"digit words", {0}, {data, conversion}, {kDecimal, kNoFiles, kBoth}},
      {"digit words", {1}, {conversion}, {kNoFiles, kBoth}},
      {"digit buffer", {0}, {data}, {kDecimal, kNoFiles, kBoth}},
      {"digit buffer", {1}, {data}, {kNoFiles, kBoth}},
      {"digit file",
       {0, 1},
       {"Digit output failed. Metadata cross-check doesn't match.", "Invalid Digit",
        "A decimal place was not found", "Invalid decimal digit in first digits.",
        "Invalid hexadecimal digit in first digits."},
       {kBoth}},
  };
  for (const Strike& strike : strikes)
    for (const Arguments& options : strike.runs)
      for (const int visit : strike.visits)
        for (const unsigned long long bit : {0ull, 63ull, 100001ull, 777777777ull}) {
          const std::string fault =
              std::string(strike.site) + ":" + std::to_string(visit) + ":" + std::to_string(bit);
          SCOPED_TRACE(fault + " " + options.back());
          TemporaryFolder folder;
          const Outcome outcome = run_with_fault(fault, folder.path(), options);
          EXPECT_EQ(outcome.status, 1);
          EXPECT_STRNE(first_found(outcome.output, strike.words), "") << outcome.output;
          const auto names = folder.names();
          EXPECT_EQ(names, (std::vector<std::string>{"Orvane Event Log.txt"}));
          const auto place =
              outcome.output.find("A check has found a wrong result: most likely this machine");
          EXPECT_LT(place, outcome.output.rfind(first_found(outcome.output, strike.words))) << outcome.output;
          const std::string log = read_file(folder.file(names.front()));
          EXPECT_TRUE(log.starts_with("20") && log.ends_with("\r\n\r\n")) << log;
          for (const std::string part :
               {"Wrong result", "Pi, ", "300,000 decimal digits", first_found(outcome.output, strike.words)})
            EXPECT_TRUE(holds(log, part)) << part << log;
        }
}

TEST(FlippedBit, InAFileTakesItsFinishedNameAway) {
  for (const char* compression : {"-C:0", "-C:1000000"}) {
    TemporaryFolder folder;
    const Outcome outcome =
        run_with_fault("digit file:0:800001", folder.path(), {"-hex:0", "-dec:1000000", compression});
    EXPECT_EQ(outcome.status, 1) << outcome.output;
    for (const std::string& name : folder.names()) EXPECT_FALSE(looks_finished(name)) << name;
  }
}

// Nothing else looks at these digits here: only the formula knows them.
TEST(FlippedBit, AmongTheLastHexadecimalDigitsIsToldByTheFormula) {
  for (const int digit : {0, 7, 15, 16}) {
    SCOPED_TRACE(digit);
    TemporaryFolder folder;
    // Of 1000 digits the last words hold 16 and the last 8, in the upper half.
    const int bit = digit < 8 ? 32 + 4 * digit : 64 + 4 * (digit - 8);
    const Outcome outcome = run_faulty("digit words:0:" + std::to_string(bit), folder.path(),
                                       {"custom", "pi", "-dec:1000", "-hex:1000", "-verify:0", "-bbp:1"});
    const bool told = digit < 16;
    EXPECT_EQ(outcome.status, told ? 1 : 0) << outcome.output;
    EXPECT_EQ(holds(outcome.output, "Failed - after 984 digits"), told) << outcome.output;
    const auto names = folder.names();
    EXPECT_EQ(std::any_of(
                  names.begin(), names.end(),
                  [](const std::string& name) { return name.starts_with("Pi - ") && looks_finished(name); }),
              !told);
  }
}

TEST(FaultProgram, ComputesRightWithoutAFault) {
  TemporaryFolder folder;
  EXPECT_EQ(run_with_fault("", folder.path()).status, 0);
}

}  // namespace
}  // namespace orvane::test
