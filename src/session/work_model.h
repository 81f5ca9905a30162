// The work of a run, stage by stage, as it was measured: what a progress line counts against.
#pragma once

#include <vector>

#include "core/run_progress.h"
#include "session/parameters.h"

namespace orvane {

/// The BBP check of Pi is made by itself where it is expected to cost less than this share of the run.
inline constexpr double kPiProofShare = 0.05;
/// Hexadecimal digits of Pi whose end the check proves.
u64 pi_proof_digits(const ComputeParameters& parameters);

/// The plan of a run with these parameters, from the measured sizes about its own. An algorithm that was not measured
/// has the shares of Pi's.
std::vector<orl::PlannedWork> expected_work(const ComputeParameters& parameters);

}  // namespace orvane
