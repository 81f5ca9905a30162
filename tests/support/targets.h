// Tests that run under each instruction target of the machine.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "simd/target.h"

namespace orl::test {

/// A test that runs under one instruction target; skipped where the machine lacks it.
class OnTarget : public testing::TestWithParam<simd::Target> {
 protected:
  void SetUp() override {
    const std::vector<std::string> missing = simd::missing_features(GetParam());
    if (GetParam() > simd::best_target())
      GTEST_SKIP() << "this machine lacks " << (missing.empty() ? "the target" : missing[0]);
    simd::set_active_target(GetParam());
  }
  void TearDown() override { simd::set_active_target(simd::best_target()); }
};
inline auto every_target() {
  return testing::Values(simd::Target::kScalar, simd::Target::kAvx2, simd::Target::kAvx512);
}
inline std::string target_label(const testing::TestParamInfo<simd::Target>& info) {
  return simd::target_name(info.param);
}

/// Calls body(target) under each target that the machine has, for tests that are typed.
template <class Body>
void for_each_target(Body&& body) {
  for (const simd::Target target : {simd::Target::kScalar, simd::Target::kAvx2, simd::Target::kAvx512}) {
    if (target > simd::best_target()) break;
    SCOPED_TRACE(simd::target_name(target));
    simd::set_active_target(target);
    body(target);
  }
  simd::set_active_target(simd::best_target());
}

}  // namespace orl::test
