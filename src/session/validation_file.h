// The text report that a finished run leaves, closed by a hash; and the check of such a file.
//
// The hash is the SHA-256 of all bytes up to and including the line "----". It proves that the file is as the
// program wrote it, against accident; it cannot prove who wrote it, for the program has no secret. The last
// bytes are exactly "----", CR LF, 64 lower-case hexadecimal digits, CR LF, so that no byte can change
// unnoticed.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "session/run_report.h"

namespace orvane {

inline constexpr const char* kValidationVersion = "1.3";

/// The whole file.
std::string validation_text(const RunReport& report);
/// Its name without ".txt", such as "Validation - Pi - Chudnovsky - 1000000 - 20261121-160502".
std::string validation_stem(const RunReport& report);

/// What a check of a validation file may answer.
enum class Validation {
  kPassed,
  kInvalidHash,  ///< something was changed
  kTampered,     ///< the hash is right, but the program does not write such a file
  kInvalidFile,  ///< no validation file, or not a whole one
  kNoLongerSupported,
  kTooNew,
};
/// The answer, and what else the file says of itself.
struct ValidationResult {
  Validation outcome = Validation::kInvalidFile;
  std::string version;                     ///< as the file states it; empty when it does not
  std::vector<std::string> failed_checks;  ///< that the file itself reports, such as "Spot Check"
};
/// Checks a whole file's text: hash, form, contents.
ValidationResult check_validation_text(std::string_view text);

/// What stands behind `label` at the start of a line of a report, without blanks around it; empty without such a line.
std::string_view report_value(std::string_view report, std::string_view label);
/// The text of the file; what cannot be read is told on the console, and empty.
std::string read_validation_file(const std::string& path);
/// Tells the outcome on the console. True for kPassed.
bool print_validation(const ValidationResult& result);

/// Asks for the path, then validate_file().
int run_validator();
/// Prints the outcome for the file. Status 0 for "Validation Passed!", else 1.
int validate_file(const std::string& path);
/// Prints the outcome as JSON, and nothing else. Status as validate_file().
int print_validation_object(const std::string& path);

}  // namespace orvane
