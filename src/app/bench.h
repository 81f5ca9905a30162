// The Pi benchmark in memory: its menu, and the run of a chosen size.
#pragma once

#include "app/options.h"

namespace orvane {

/// Asks for threads and a size until one fits this machine, then runs it. Returns the status.
int bench_menu();

/// Runs the benchmark that `settings` describe. Throws InvalidParametersException, before anything is
/// allocated, when the size is larger than the multiplication reaches or than the memory that is available.
int run_benchmark(BenchSettings& settings);
/// Checks and runs what a line describes, a benchmark or a computation of the user's own. Returns the status.
int run_computation(ComputeParameters& parameters);

}  // namespace orvane
