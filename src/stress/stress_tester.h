// The component stress tester: runs the enabled tests in turn, iteration after iteration, until it is
// stopped.
#pragma once

#include "stress/stress_settings.h"

namespace orvane {

/// Runs until SIGINT, SIGTERM or an error with stop_on_error. Returns the status of the process: 1 when a
/// test failed, a core could not be bound or no test of an iteration could run. The settings have no
/// refusal().
int run_stress_test(const StressSettings& settings);

}  // namespace orvane
