#include "session/validation_file.h"

#include "config/writer.h"
#include "core/format.h"
#include "core/version.h"
#include "digits/sha256.h"
#include "simd/target.h"

namespace orvane {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::size_t kValueColumn = 23;

// A text with lines, written from its start to its end.
class Text {
 public:
  void line(std::string_view text = {}) { text_.append(text).append(kLineEnd); }
  /// A label that ends where the values begin.
  void value(std::string label, std::string_view value) {
    if (label.size() < kValueColumn) label.resize(kValueColumn, ' ');
    line(label.append(value));
  }
  void lines(const ReportLines& lines) { text_ += lines_text(lines); }
  void raw(std::string_view text) { text_ += text; }
  std::string& text() { return text_; }

 private:
  std::string text_;
};

void add_system(Text& text, const std::vector<orl::ReportSection>& sections) {
  for (const orl::ReportSection& section : sections) {
    const bool single = section.rows.size() == 1 && section.rows[0].first.empty();
    if (single) {
      text.value(section.title, section.rows[0].second);
    } else {
      text.line(section.title);
      for (const auto& [label, value] : section.rows) text.value("  " + label, value);
    }
    text.line();
  }
}

void add_computation(Text& text, const RunReport& report) {
  const auto count = [](u64 digits) { return orl::format_with_commas(digits); };
  text.value("Constant:", report.constant_long);
  text.value("Algorithm:", report.algorithm_long);
  text.value("Decimal Digits:", count(report.decimal_digits));
  text.value("Hexadecimal Digits:",
             report.hexadecimal_digits != 0 ? count(report.hexadecimal_digits) : "Disabled");
  text.line();
}

void add_mode(Text& text, const RunReport& report) {
  text.value("Computation Mode:", report.mode);
  text.value("Threading Mode:", report.threading);
  text.value("Working Memory:", orl::format_bytes(report.working_bytes));
  text.value("Total Memory:", orl::format_bytes(report.working_bytes + report.table_bytes));
  if (report.disk) {
    text.line("Logical Peak Disk Usage:       " + orl::format_bytes(report.disk->peak_bytes));
    text.line("Logical Disk Bytes Read:       " + orl::format_bytes(report.disk->read_bytes));
    text.line("Logical Disk Bytes Written:    " + orl::format_bytes(report.disk->written_bytes));
  }
  text.line();
}

// Characters that a file name may hold and a shell shows as they are.
std::string file_name_part(std::string part) {
  for (char& c : part)
    if (static_cast<unsigned char>(c) < ' ' || c == '/' || c == '\\') c = '_';
  return part;
}

}  // namespace

std::string validation_text(const RunReport& report) {
  Text text;
  text.line("Benchmark Validation File - DO NOT MODIFY! If you do, it will fail validation.");
  text.line();
  text.value("Validation Version:", kValidationVersion);
  text.line();
  text.value("Program:", std::string("Orvane v") + orl::kVersion);
  text.value("Tuning:", orl::simd::target_name(orl::simd::active_target()));
  text.line();
  text.value("User:", report.user);
  text.line();
  add_system(text, report.system);
  add_computation(text, report);
  add_mode(text, report);
  text.line("Configuration Dump:");
  text.raw(orl::to_string(report.configuration));
  text.line();
  text.line("Event Log:");
  text.raw(report.events);
  text.line();
  text.lines(time_lines(report, ReportForm::kFile));
  text.line();
  text.lines(utilization_lines(report));
  text.line();
  text.lines(result_lines(report));
  text.line();
  text.lines(check_lines(report, ReportForm::kFile));
  text.line();
  text.line("----");
  text.line(orl::sha256(text.text()));
  return std::move(text.text());
}

std::string validation_stem(const RunReport& report) {
  std::string stem = "Validation";
  for (const std::string& part :
       {report.constant, report.algorithm, std::to_string(report.decimal_digits), report.timer.end_stamp()})
    stem += " - " + file_name_part(part);
  return stem;
}

}  // namespace orvane
