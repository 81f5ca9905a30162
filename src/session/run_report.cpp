#include "session/run_report.h"

#include <algorithm>

#include "console/console.h"
#include "core/format.h"
#include "core/name_table.h"

namespace orvane {
namespace {

namespace console = orl::console;

ReportLine labelled(const std::string& label, const std::string& value, char colour) {
  return {{label, 'w'}, {value, colour}};
}

// Groups of ten, five to a line, with the index of the line's last digit.
void add_last_digits(ReportLines& lines, const std::string& title, const OutputResult& result) {
  constexpr std::size_t kGroup = 10, kLine = 50, kWidth = kLine + kLine / kGroup;
  lines.push_back({{title, 'w'}});
  const std::string& digits = result.last_digits.text();
  const u64 first = result.digit_count - digits.size();
  const std::size_t index_width = orl::format_with_commas(result.digit_count).size();
  for (std::size_t at = 0; at < digits.size(); at += kLine) {
    const std::size_t end = std::min(at + kLine, digits.size());
    std::string groups;
    for (std::size_t group = at; group < end; group += kGroup)
      groups += digits.substr(group, std::min(kGroup, end - group)) + " ";
    groups.resize(kWidth, ' ');
    std::string index = orl::format_with_commas(first + end);
    index.insert(0, index_width - index.size(), ' ');
    lines.push_back({{groups, 'G'}, {" :  " + index, 'w'}});
  }
  lines.emplace_back();
}

ReportLine spot_check_line(const SpotCheck& check, ReportForm form) {
  const std::string label = "Spot Check:                 ";
  std::string text = spot_check_text(check.result);
  if (form == ReportForm::kFile) return labelled(label, text, 'w');
  if (check.result == SpotCheck::kNotAvailable)
    return labelled(label, "Unavailable - Digit file not found.", 'Y');
  text += " - " + orl::format_with_commas(check.compared) + " digits agree with \"" + check.file + "\"";
  return labelled(label, text, check.result == SpotCheck::kPassed ? 'G' : 'R');
}

// The outcome, and under it what differs.
ReportLines pi_proof_lines(const PiProof& proof) {
  const std::string label = "BBP Check:                  ";
  const char colour = proof.result == PiProof::kPassed ? 'G' : proof.result == PiProof::kFailed ? 'R' : 'Y';
  ReportLines lines{labelled(label, to_string(proof), colour)};
  for (const std::string& line : differing_digits(proof))
    lines.push_back(labelled(std::string(label.size(), ' '), line, colour));
  return lines;
}

ReportLine clock_line(const std::string& label, orl::ClockCheck check, bool contiguous) {
  const char colour = check == orl::ClockCheck::kPassed && contiguous   ? 'G'
                      : check == orl::ClockCheck::kFailed && contiguous ? 'R'
                                                                        : 'Y';
  return labelled(label, clock_text(check, contiguous), colour);
}

}  // namespace

const char* spot_check_text(SpotCheck::Result result) {
  static constexpr orl::Named<SpotCheck::Result> kTexts[] = {{SpotCheck::kPassed, "Passed"},
                                                             {SpotCheck::kFailed, "Failed"},
                                                             {SpotCheck::kNotAvailable, "Not Available"}};
  return orl::name_of(kTexts, result);
}

const char* clock_text(orl::ClockCheck check, bool contiguous) {
  return contiguous ? orl::clock_check_text(check) : "Disabled due to checkpoint restart";
}

void print_lines(const ReportLines& lines) {
  for (const ReportLine& line : lines) {
    for (const auto& [text, colour] : line) console::print(text, colour);
    console::newline();
  }
}

std::string lines_text(const ReportLines& lines) {
  std::string all;
  for (const ReportLine& line : lines) {
    for (const auto& [text, colour] : line) all += text;
    all += "\r\n";
  }
  return all;
}

ReportLines time_lines(const RunReport& report, ReportForm form) {
  const bool console = form == ReportForm::kConsole;
  const std::string wall = orl::seconds_text(report.timer.wall_seconds());
  std::string computation = orl::seconds_text(report.computation_seconds);
  computation.insert(0, wall.size() - std::min(wall.size(), computation.size()), ' ');
  const std::string blank = console ? " " : "";
  return {labelled(console ? "Start Time:                 " : "Start Date:            ",
                   report.timer.start_date(), 'Y'),
          labelled(console ? "End Time:                   " : "End Date:              ",
                   report.timer.end_date(), 'Y'),
          {},
          labelled("Total Computation Time:    " + blank, computation, 'G'),
          labelled("Start-to-End Wall Time:    " + blank, wall, 'G')};
}

ReportLines utilization_lines(const RunReport& report) {
  return {labelled("CPU Utilization:        ", report.timer.utilization(1), 'Y'),
          labelled("Multi-core Efficiency:  ", report.timer.utilization(report.threads), 'Y')};
}

ReportLines result_lines(const RunReport& report) {
  const OutputResult &dec = report.dec, &hex = report.hex;
  const bool hexadecimal = hex.digit_count != 0;
  ReportLines lines;
  add_last_digits(lines, "Last Decimal Digits:", dec);
  if (hexadecimal) add_last_digits(lines, "Last Hexadecimal Digits:", hex);
  for (const OutputResult* result : {&dec, &hex}) {
    if (!result->sha256) continue;
    const u64 first = result->sha256->first_index();
    lines.push_back(labelled(std::string(result == &dec ? "SHA256-dec(" : "SHA256-hex(") +
                                 std::to_string(first) + " - " +
                                 std::to_string(first + result->sha256->count() - 1) + ") = ",
                             result->sha256->sha256(), 'G'));
  }
  lines.push_back(labelled("Dec Counts: ", counts_text(dec.counts), 'G'));
  if (hexadecimal) lines.push_back(labelled("Hex Counts: ", counts_text(hex.counts), 'G'));
  lines.push_back(labelled("Dec Hash: Floor(|x| * 10^dec) mod (2^61 - 1) = ", std::to_string(dec.hash), 'G'));
  if (hexadecimal)
    lines.push_back(
        labelled("Hex Hash: Floor(|x| * 16^hex) mod (2^61 - 1) = ", std::to_string(hex.hash), 'G'));
  return lines;
}

ReportLines check_lines(const RunReport& report, ReportForm form) {
  const orl::ClockReport& clocks = report.clocks;
  ReportLines lines = {spot_check_line(report.spot_check, form),
                       clock_line("Timer Sanity Check:         ", clocks.timer, report.contiguous),
                       clock_line("Frequency Sanity Check:     ", clocks.frequency, report.contiguous)};
  if (report.pi_proof) {
    const ReportLines proof = pi_proof_lines(*report.pi_proof);
    lines.insert(lines.begin() + 1, proof.begin(), proof.end());
  }
  if (form == ReportForm::kConsole) return lines;
  lines.push_back(labelled("Reference Clock:            ", clocks.reference, 'w'));
  for (std::size_t i = 0; i < clocks.clocks.size(); i++)
    lines.push_back(labelled("Reference Clock " + std::to_string(i) + ":          ", clocks.clocks[i], 'w'));
  lines.push_back(labelled("Is Debugger Present:        ", report.debugger ? "Yes" : "No", 'w'));
  lines.push_back(labelled("Is Contiguous:              ", report.contiguous ? "Yes" : "No", 'w'));
  return lines;
}

}  // namespace orvane
