// The component stress tester: runs the enabled tests in turn, iteration after iteration, until it is
// stopped.
#pragma once

#include "tools/stress_settings.h"

namespace orvane {

/// Runs until SIGINT, SIGTERM or an error with stop_on_error. Returns the status of the process: 1 when a
/// test failed, a core could not be bound or no test of an iteration could run. The settings have no
/// refusal().
int run_stress_test(const StressSettings& settings);

/// Runs what the `StressTest` object of a configuration asks for. Throws InvalidParametersException "Cannot
/// run stress test with these parameters." when that cannot be done, and has then said why.
int run_stress_object(const orl::Object& object);

/// The menu; returns the status of the test that it started.
int run_stress_menu();

}  // namespace orvane
