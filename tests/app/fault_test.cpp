// A flipped bit, wherever it strikes, ends the run with status 1 and the words of the check that found it.
#include <gtest/gtest.h>

#include "app/process.h"

namespace orvane::test {
namespace {

Outcome run_with_fault(const std::string& fault, const std::string& folder,
                       std::vector<std::string> more = {}) {
  std::vector<std::string> arguments = {"pause:-2", "priority:0",   "colors:0",    "skip-warnings",
                                        "custom",   "pi",           "-dec:300000", "-hex:100000",
                                        "-TD:2",    "-PF:pushpool", "-o",          folder};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return run(ORVANE_FAULTY_PROGRAM, arguments,
             {.input = {}, .folder = folder, .environment = {{"ORVANE_TEST_FAULT", fault}}});
}

struct Strike {
  const char* site;
  std::vector<int> visits;
  std::vector<const char*> words;  // any of them
};

TEST(FlippedBit, IsFoundWhereverItStrikes) {
  const Strike strikes[] = {
      {"merge operand", {0, 1, 7, 40, 100}, {"Modular Redundancy Check Failed"}},
      {"merge result", {0, 1, 7, 40, 100}, {"Modular Redundancy Check Failed"}},
      {"conversion power", {0, 1, 3}, {"Power Hash Mismatch", "Mismatching exponents."}},
      {"digit words", {0}, {"Data Corruption Detected: Checksum Mismatch"}},
      {"digit words", {1}, {"Base Conversion Failed: Checksum Mismatch"}},
      {"digit file",
       {0, 1},
       {"Digit output failed. Metadata cross-check doesn't match.", "Invalid Digit",
        "A decimal place was not found", "Invalid decimal digit in first digits.",
        "Invalid hexadecimal digit in first digits."}},
  };
  for (const Strike& strike : strikes) {
    for (const int visit : strike.visits) {
      for (const unsigned long long bit : {0ull, 63ull, 100001ull, 777777777ull}) {
        const std::string fault =
            std::string(strike.site) + ":" + std::to_string(visit) + ":" + std::to_string(bit);
        SCOPED_TRACE(fault);
        TemporaryFolder folder;
        const Outcome outcome = run_with_fault(fault, folder.path());
        EXPECT_EQ(outcome.status, 1);
        bool found = false;
        for (const char* words : strike.words)
          found = found || outcome.output.find(words) != std::string::npos;
        EXPECT_TRUE(found) << outcome.output;
      }
    }
  }
}

TEST(FlippedBit, InAFileTakesItsFinishedNameAway) {
  for (const char* compression : {"-C:0", "-C:1000000"}) {
    TemporaryFolder folder;
    const Outcome outcome =
        run_with_fault("digit file:0:800001", folder.path(), {"-hex:0", "-dec:1000000", compression});
    EXPECT_EQ(outcome.status, 1) << outcome.output;
    for (const std::string& name : folder.names())
      EXPECT_TRUE(name.find('.') == std::string::npos || name.find(" (incomplete).") != std::string::npos)
          << name;
  }
}

TEST(FaultProgram, ComputesRightWithoutAFault) {
  TemporaryFolder folder;
  EXPECT_EQ(run_with_fault("", folder.path()).status, 0);
}

}  // namespace
}  // namespace orvane::test
