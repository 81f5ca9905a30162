// The nine tests of the stress tester.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/uncopied.h"
#include "stress/stress_work.h"

namespace orvane {

/// One row of the list of tests.
class StressTest : orl::Uncopied {
 public:
  /// Which part of a processor the test loads most.
  enum class Component { kScalarInteger, kInteger, kFloat, kMixed, kMixedWorkload };

  /// What is said of a test.
  struct Row {
    const char* tag;   ///< of the command line, such as "C17"
    const char* name;  ///< of menus and summaries
    const char* unit;  ///< of an operand's length
    Component component;
    unsigned weight;  ///< 1 to 10: how much the test leans on memory rather than on the processor
    bool enabled;     ///< by default
  };

  /// Chosen as its row says.
  explicit StressTest(const Row& row) : enabled(row.enabled), row_(row) {}
  virtual ~StressTest() = default;

  const char* tag() const { return row_.tag; }
  const char* name() const { return row_.name; }
  const char* unit() const { return row_.unit; }
  unsigned weight() const { return row_.weight; }
  /// Such as "AVX512 Float": the kernels that this machine runs.
  std::string component() const;
  /// "BKT - Basecase + Karatsuba".
  std::string title() const { return std::string(row_.tag) + " - " + row_.name; }

  /// The work of one thread in a share of memory; null when the test does not fit.
  virtual std::unique_ptr<StressWork> plan(u64 share_bytes) const = 0;

  bool enabled;

 private:
  Row row_;
};

/// All of them, in order, those on that are on by default.
std::vector<std::unique_ptr<StressTest>> make_stress_tests();

}  // namespace orvane
