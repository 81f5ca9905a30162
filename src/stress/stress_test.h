// The nine tests of the stress tester.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "stress/stress_work.h"

namespace orvane {

/// One row of the list of tests.
class StressTest {
 public:
  /// Which part of a processor the test loads most.
  enum class Component { kScalarInteger, kInteger, kFloat, kMixed, kMixedWorkload };

  /// `weight` from 1 to 10: how much the test leans on memory rather than on the processor.
  StressTest(const char* tag, const char* name, const char* unit, Component component, unsigned weight,
             bool enabled_by_default)
      : enabled(enabled_by_default),
        tag_(tag),
        name_(name),
        unit_(unit),
        component_(component),
        weight_(weight) {}
  StressTest(const StressTest&) = delete;
  StressTest& operator=(const StressTest&) = delete;
  virtual ~StressTest() = default;

  const char* tag() const { return tag_; }
  const char* name() const { return name_; }
  const char* unit() const { return unit_; }
  unsigned weight() const { return weight_; }
  /// Such as "AVX512 Float": the kernels that this machine runs.
  std::string component() const;
  /// "BKT - Basecase + Karatsuba".
  std::string title() const { return std::string(tag_) + " - " + name_; }

  /// The work of one thread in a share of memory; null when the test does not fit.
  virtual std::unique_ptr<StressWork> plan(u64 share_bytes) const = 0;

  bool enabled;

 private:
  const char* tag_;
  const char* name_;
  const char* unit_;
  Component component_;
  unsigned weight_;
};

/// All of them, in order, those on that are on by default.
std::vector<std::unique_ptr<StressTest>> make_stress_tests();

}  // namespace orvane
