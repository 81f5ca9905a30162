// The results of a run for scripts: what the validation file says, as an object.
#pragma once

#include <string>

#include "session/run_report.h"

namespace orvane {

/// Sizes in bytes, times in microseconds, counts as integers, truths as "true" and "false". Texts are valid
/// UTF-8 without control characters: other bytes read U+FFFD, so that every JSON reader takes the file.
orl::Object results_object(const RunReport& report, const std::string& validation_file);

}  // namespace orvane
