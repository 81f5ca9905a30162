// What a page about the hardware shows: each feature by itself, and where the build stops.
#pragma once

#include <vector>

#include "simd/target.h"

namespace orl::simd {

/// One feature, and whether it can be used.
struct FeatureState {
  const char* name;
  bool present;  ///< the processor has it, and the system saves the registers that it needs
};
/// Every feature that a target asks for, those of the lowest target first.
std::vector<FeatureState> processor_features();

/// The target above which this build does not go, on any machine.
Target build_limit();

}  // namespace orl::simd
