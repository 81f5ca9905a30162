// A bit flipped in the memory of a stress test is told with its core within that test, whichever test it is.
#include <gtest/gtest.h>

#include "app/process.h"
#include "system/topology.h"

namespace orvane::test {
namespace {

// Runs tests for one round each, over and over, with the fault. `timeout` interrupts what nothing ends, and
// in the foreground only that: not its own group as well.
Outcome run_stress(const std::string& cores, const std::string& tests, const std::string& fault,
                   const char* stop_on_error, const char* timeout) {
  TemporaryFolder folder;
  const std::string path = folder.file("stress.cfg");
  orl::test::write_file(path,
                        "{ Action : \"StressTest\" StressTest : { TotalMemory : 6000000 Seconds : 0 "
                        "LogicalCores : [" +
                            cores + "] StopOnError : \"" + stop_on_error + "\" Tests : [" + tests + "] } }");
  return run("/usr/bin/timeout",
             {"--foreground", "--preserve-status", "-s", "INT", timeout, ORVANE_FAULTY_PROGRAM, "pause:-2",
              "priority:0", "colors:0", "skip-warnings", "config", path},
             {.input = {}, .folder = folder.path(), .environment = {{"ORVANE_TEST_FAULT", fault}}});
}

std::size_t count(const std::string& text, const std::string& part) {
  std::size_t found = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++found;
  return found;
}

TEST(FlippedBit, InAStressTestIsToldWithItsCore) {
  const std::vector<orl::u32>& all = orl::topology().cores;
  const std::string core = std::to_string(all.back());
  const std::string cores = all.size() == 1 ? core : std::to_string(all.front()) + " " + core;
  for (const std::string tag : {"BKT", "BBP", "SFT", "FFT", "N32", "N64", "HNT", "VST", "C17"}) {
    for (const std::string part : {"operands", "tables"}) {
      if (part == "tables" && (tag == "BKT" || tag == "BBP")) continue;  // they have none
      const std::string fault = "stress " + part + " " + tag + " " + core + ":0:123456789";
      SCOPED_TRACE(fault);
      const Outcome outcome = run_stress(cores, "\"" + tag + "\"", fault, "true", "20");
      EXPECT_EQ(outcome.status, 1) << outcome.output;
      EXPECT_EQ(count(outcome.output, "Error(s) encountered on logical core "), 1u) << outcome.output;
      EXPECT_EQ(count(outcome.output, "Error(s) encountered on logical core " + core + "\n"), 1u);
      EXPECT_EQ(count(outcome.output, "Iteration "), 1u) << outcome.output;
      for (const char* text : {"Failed  Test Time:  ", "Errors encountered. Stopping test...\n",
                               "    Passed              0\n    Failed              1\n"})
        EXPECT_TRUE(holds(outcome.output, text)) << outcome.output;
    }
  }
}

TEST(FlippedBit, DoesNotEndAStressTestThatGoesOnAfterErrors) {
  const std::string core = std::to_string(orl::topology().cores.front());
  const Outcome outcome =
      run_stress(core, "\"BKT\" \"N64\"", "stress operands BKT " + core + ":0:12345", "false", "2");
  EXPECT_EQ(outcome.status, 1) << outcome.output;
  EXPECT_TRUE(holds(outcome.output, "Iteration 2")) << outcome.output;
  EXPECT_EQ(count(outcome.output, "Error(s) encountered on logical core " + core + "\n"), 1u);
  const std::string end = outcome.output.substr(outcome.output.rfind("All tests completed:"));
  EXPECT_TRUE(holds(end, "    Failed              1\n")) << outcome.output;
}

}  // namespace
}  // namespace orvane::test
