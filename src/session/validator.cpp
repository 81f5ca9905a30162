// The check of a validation file.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <optional>

#include "console/console.h"
#include "core/name_table.h"
#include "core/number_forms.h"
#include "digits/sha256.h"
#include "session/run_results.h"
#include "session/validation_file.h"

namespace orvane {
std::string_view report_value(std::string_view text, std::string_view label) {
  for (std::size_t at = 0; (at = text.find(label, at)) != std::string_view::npos; at += label.size()) {
    if (at != 0 && text[at - 1] != '\n') continue;
    std::string_view value = text.substr(at + label.size());
    value = value.substr(0, value.find_first_of("\r\n"));
    const auto first = value.find_first_not_of(" \t:");
    if (first == std::string_view::npos) return {};
    return value.substr(first, value.find_last_not_of(" \t") + 1 - first);
  }
  return {};
}

namespace {

namespace console = orl::console;

constexpr std::string_view kClosing = "----\r\n";
constexpr u64 kHashDigits = 64;
constexpr u64 kMaxFileBytes = u64{64} << 20;  // a report is some kilobytes; digits are not read for nothing

// What begins a line of every file that the program writes, in the order of the file.
constexpr std::string_view kLineStarts[] = {
    "Benchmark Validation File - DO NOT MODIFY! If you do, it will fail validation.\r\n",
    "Validation Version:    ",
    "Program:               Orvane v",
    "Tuning:                ",
    "User:                  ",
    "Operating System:      ",
    "Processor(s):",
    "Constant:              ",
    "Algorithm:             ",
    "Decimal Digits:        ",
    "Computation Mode:      ",
    "Threading Mode:        ",
    "Working Memory:        ",
    "Total Memory:          ",
    "Configuration Dump:\r\n",
    "Event Log:\r\n",
    "Start Date:            ",
    "End Date:              ",
    "Total Computation Time:    ",
    "Start-to-End Wall Time:    ",
    "CPU Utilization:        ",
    "Multi-core Efficiency:  ",
    "SHA256-dec(",
    "Dec Counts: ",
    "Dec Hash: Floor(|x| * 10^dec) mod (2^61 - 1) = ",
    "Spot Check:                 ",
    "Timer Sanity Check:         ",
    "Frequency Sanity Check:     ",
    "Reference Clock:            ",
    "Is Debugger Present:        ",
    "Is Contiguous:              ",
    "----\r\n",
};

std::string version_of(std::string_view text) {
  for (const char* tag : {"Validation Version:", "File Format"}) {
    const std::string_view version = report_value(text, tag);
    if (!version.empty()) return std::string(version);
  }
  return {};
}

// All line starts, each behind the one before.
bool has_all_lines(std::string_view text) {
  std::size_t at = 0;
  for (const std::string_view start : kLineStarts) {
    do at = text.find(start, at) + 1;
    while (at > 1 && text[at - 2] != '\n');
    if (at == 0) return false;
  }
  return true;
}

u64 number_of(std::string_view text) { return orl::parse_number(text, orl::NumberForm::kInteger).value; }

// Every digit was counted.
bool counts_agree(std::string_view text, std::string_view digits_label, std::string_view counts_label) {
  const u64 digits = number_of(report_value(text, digits_label));
  u64 sum = 0;
  for (std::string_view counts = report_value(text, counts_label); !counts.empty();) {
    const auto end = std::min(counts.find(' '), counts.size());
    sum += number_of(counts.substr(0, end));
    counts.remove_prefix(std::min(end + 1, counts.size()));
  }
  return sum == digits;
}

Validation outcome_of(std::string_view text, const std::string& version) {
  if (version.empty()) return Validation::kInvalidFile;
  if (version == "1.0" || version == "1.1") return Validation::kNoLongerSupported;
  if (version != "1.2" && version != kValidationVersion) return Validation::kTooNew;
  constexpr u64 kEnd = kHashDigits + 2;
  if (text.size() < kClosing.size() + kEnd || !text.ends_with("\r\n")) return Validation::kInvalidFile;
  const std::string_view hashed = text.substr(0, text.size() - kEnd);
  if (!hashed.ends_with(kClosing)) return Validation::kInvalidFile;
  if (orl::sha256(hashed) != text.substr(hashed.size(), kHashDigits)) return Validation::kInvalidHash;
  const bool whole = has_all_lines(hashed) && counts_agree(hashed, "Decimal Digits:", "Dec Counts:") &&
                     counts_agree(hashed, "Hexadecimal Digits:", "Hex Counts:");
  return whole ? Validation::kPassed : Validation::kTampered;
}

// At most kMaxFileBytes + 1 bytes; without any, `reason` says why.
std::optional<std::string> read_text(const std::string& path, std::string& reason) {
  std::error_code ignored;
  const auto status = std::filesystem::status(path, ignored);
  // The reading of a pipe or a device may never end.
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    reason = "Not a file";
    return std::nullopt;
  }
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file.is_open()) {
    reason = std::strerror(errno);
    return std::nullopt;
  }
  std::string text;
  char block[65536];
  while (text.size() <= kMaxFileBytes && (file.read(block, sizeof block) || file.gcount() != 0))
    text.append(block, static_cast<std::size_t>(file.gcount()));
  return text;
}

constexpr orl::Named<Validation> kOutcomeTexts[] = {
    {Validation::kPassed, "Validation Passed!"},
    {Validation::kInvalidHash, "Validation Failed: Invalid Hash"},
    {Validation::kTampered, "Validation Failed: File is either invalid or has been tampered with."},
    {Validation::kInvalidFile, "Validation Failed - Invalid File"},
    {Validation::kNoLongerSupported,
     "Validation file versions 1.0 an 1.1 are no longer supported.\n"
     "To validate this file, please use Orvane v0.5.5."},
    {Validation::kTooNew, "This validation file version is too new.\nPlease use a newer version of Orvane."},
};

}  // namespace

std::string read_validation_file(const std::string& path) {
  std::string reason;
  const auto text = read_text(path, reason);
  if (!text) console::println("Unable to read \"" + path + "\": " + reason + ". Check the path.", 'Y');
  return text.value_or("");
}

ValidationResult check_validation_text(std::string_view text) {
  ValidationResult result;
  if (text.size() > kMaxFileBytes) return result;
  result.version = version_of(text);
  result.outcome = outcome_of(text, result.version);
  for (const char* check : {"Spot Check", "BBP Check", "Timer Sanity Check", "Frequency Sanity Check"})
    if (report_value(text, check).starts_with("Failed")) result.failed_checks.push_back(check);
  return result;
}

bool print_validation(const ValidationResult& result) {
  const bool known = result.version == "1.2" || result.version == kValidationVersion;
  if (known) console::println("Validation Format " + result.version + "\n", 'w');
  const bool passed = result.outcome == Validation::kPassed;
  for (const std::string& check : result.failed_checks)
    if (passed) console::println("The file reports a failed check: " + check, 'Y');
  console::println(orl::name_of(kOutcomeTexts, result.outcome), passed ? 'G' : 'R');
  return passed;
}

int print_validation_object(const std::string& path) {
  std::string reason;
  const ValidationResult result = check_validation_text(read_text(path, reason).value_or(""));
  orl::Array failed;
  for (const std::string& check : result.failed_checks) failed.add_string(check);
  orl::Object object;
  object.add_integer("ResultsVersion", kResultsVersion);
  object.add_string("File", path);
  object.add_bool("Passed", result.outcome == Validation::kPassed);
  object.add_string("Outcome", orl::name_of(kOutcomeTexts, result.outcome));
  object.add_string("FileFormat", result.version);
  object.add_array("FailedChecks", std::move(failed));
  print_results(object);
  return result.outcome == Validation::kPassed ? 0 : 1;
}

int run_validator() {
  console::println("\nBenchmark Validator\n", 'T');
  const std::string path = console::read_line("Enter Path of Validation File:\n");
  console::newline();
  return validate_file(path);
}

int validate_file(const std::string& path) {
  return print_validation(check_validation_text(read_validation_file(path))) ? 0 : 1;
}

}  // namespace orvane
