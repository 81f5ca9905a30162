// The results of a run for scripts: what the validation file says, as an object.
#pragma once

#include <string>

#include "session/run_report.h"

namespace orvane {

/// The version of the form of a results file: it grows when a reader of an older one could go wrong.
inline constexpr orl::s64 kResultsVersion = 2;

/// Sizes in bytes, times in microseconds, counts as integers, dates by ISO 8601. Texts are valid
/// UTF-8 without control characters: other bytes read U+FFFD, so that every JSON reader takes the file.
orl::Object results_object(const RunReport& report, const std::string& validation_file);

}  // namespace orvane
