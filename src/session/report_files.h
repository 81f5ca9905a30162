// What a finished run leaves in the working folder.
#pragma once

#include "session/run_report.h"

namespace orvane {

/// Writes the validation file, and the results for scripts on request, under names that nothing has yet, and
/// prints them. Then throws AlgorithmFailedException "Spot check failed at: " with the position if stored
/// digits differ. Throws FileException when a file cannot be written.
void leave_report(const RunReport& report, bool json_results);

}  // namespace orvane
