#include "session/run_results.h"

#include <cmath>

#include "config/writer.h"
#include "console/console.h"
#include "core/name_table.h"
#include "core/version.h"
#include "session/validation_file.h"
#include "simd/target.h"

namespace orvane {
namespace {

using orl::Array;
using orl::Object;
using orl::s64;

// Bytes of the UTF-8 sequence that `text` begins with; 0 when it begins with none.
std::size_t sequence_length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
  const unsigned lead = byte(0);
  const std::size_t length = lead < 0x80   ? 1
                             : lead < 0xc2 ? 0
                             : lead < 0xe0 ? 2
                             : lead < 0xf0 ? 3
                             : lead < 0xf5 ? 4
                                           : 0;
  for (std::size_t i = 1; i < length; i++)
    if ((byte(i) & 0xc0) != 0x80) return 0;
  // Longer than needed, a surrogate, or beyond the last character.
  if ((lead == 0xe0 && byte(1) < 0xa0) || (lead == 0xed && byte(1) > 0x9f) ||
      (lead == 0xf0 && byte(1) < 0x90) || (lead == 0xf4 && byte(1) > 0x8f))
    return 0;
  return length;
}

std::string clean(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = sequence_length(text);
    const bool control = static_cast<unsigned char>(text[0]) < ' ' || text[0] == 127;
    if (length == 0 || control)
      result += "\xef\xbf\xbd";
    else
      result += text.substr(0, length);
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return result;
}

// A copy of the tree with clean texts.
std::unique_ptr<orl::Value> clean(const orl::Value& value) {
  switch (value.kind()) {
    case orl::ValueKind::kString:
      return std::make_unique<orl::String>(clean(value.as_string("").value), value.as_string("").truth);
    case orl::ValueKind::kArray: {
      auto array = std::make_unique<Array>();
      const Array& from = value.as_array("");
      for (u64 i = 0; i < from.size(); i++) array->add(clean(from[i]));
      return array;
    }
    case orl::ValueKind::kObject: {
      auto object = std::make_unique<Object>();
      for (const Object::Node& node : value.as_object("").nodes())
        object->add_node(clean(node.key), clean(*node.value));
      return object;
    }
    case orl::ValueKind::kInteger:
      break;
  }
  return std::make_unique<orl::Integer>(value.as_integer("").value);
}

void add_count(Object& object, const char* key, u64 value) {
  object.add_integer(key, static_cast<s64>(value));
}

void add_seconds(Object& object, const std::string& key, double seconds) {
  object.add_integer(key, std::llround(seconds * 1e6));
}

Object program() {
  Object object;
  object.add_string("Name", "Orvane");
  object.add_string("Version", orl::kVersion);
  object.add_string("Tuning", orl::simd::target_name(orl::simd::active_target()));
  return object;
}

// Rows are a list, for a label may come twice.
Array system(const std::vector<orl::ReportSection>& sections) {
  Array list;
  for (const orl::ReportSection& section : sections) {
    Array rows;
    for (const auto& [label, value] : section.rows) {
      Object row;
      row.add_string("Label", label);
      row.add_string("Value", value);
      rows.add_object(std::move(row));
    }
    Object object;
    object.add_string("Title", section.title);
    object.add_array("Rows", std::move(rows));
    list.add_object(std::move(object));
  }
  return list;
}

Object computation(const RunReport& report) {
  Object object;
  object.add_string("Constant", report.constant);
  object.add_string("ConstantLong", report.constant_long);
  object.add_string("Algorithm", report.algorithm);
  object.add_string("AlgorithmLong", report.algorithm_long);
  add_count(object, "DecimalDigits", report.decimal_digits);
  add_count(object, "HexadecimalDigits", report.hexadecimal_digits);
  return object;
}

Object mode(const RunReport& report) {
  Object object;
  object.add_string("ComputationMode", report.mode);
  object.add_string("ThreadingMode", report.threading);
  add_count(object, "WorkingMemory", report.working_bytes);
  add_count(object, "TotalMemory", report.working_bytes + report.table_bytes);
  add_count(object, "PeakMemory", report.peak_bytes);
  if (report.disk) {
    add_count(object, "LogicalPeakDiskUsage", report.disk->peak_bytes);
    add_count(object, "LogicalDiskBytesRead", report.disk->read_bytes);
    add_count(object, "LogicalDiskBytesWritten", report.disk->written_bytes);
  }
  return object;
}

// The last one, without a name, is what the stage did behind its last part.
Array parts(const std::vector<orl::SpentWork>& spent) {
  Array list;
  for (const orl::SpentWork& work : spent) {
    Object part;
    part.add_string("Name", work.part);
    add_seconds(part, "Microseconds", work.wall_seconds);
    add_seconds(part, "ProcessorMicroseconds", work.processor_seconds);
    list.add_object(std::move(part));
  }
  return list;
}

Object times(const RunReport& report) {
  Array stages;
  for (u64 i = 0; i < report.timer.stages().size(); i++) {
    const auto& [name, spent] = report.timer.stages()[i];
    Object stage;
    stage.add_string("Name", name);
    add_seconds(stage, "Microseconds", spent);
    if (i < report.stage_parts.size()) stage.add_array("Parts", parts(report.stage_parts[i]));
    stages.add_object(std::move(stage));
  }
  Object object;
  object.add_string("StartDate", report.timer.iso_start_date());
  object.add_string("EndDate", report.timer.iso_end_date());
  add_seconds(object, "ComputationMicroseconds", report.computation_seconds);
  add_seconds(object, "WallMicroseconds", report.timer.wall_seconds());
  add_seconds(object, "UserMicroseconds", report.timer.user_seconds());
  add_seconds(object, "KernelMicroseconds", report.timer.kernel_seconds());
  add_count(object, "Threads", report.threads);
  object.add_array("Stages", std::move(stages));
  return object;
}

Object digits(const OutputResult& result) {
  Array counts;
  for (u32 digit = 0; digit < result.counts.radix(); digit++)
    counts.add_integer(static_cast<s64>(result.counts.count(digit)));
  Object object;
  add_count(object, "Radix", result.radix);
  add_count(object, "Digits", result.digit_count);
  object.add_string("FirstDigits", result.first_digits);
  object.add_string("LastDigits", result.last_digits.text());
  object.add_array("Counts", std::move(counts));
  add_count(object, "Hash", result.hash);
  object.add_string("HashText", std::to_string(result.hash));
  if (result.sha256) object.add_string("Sha256", result.sha256->sha256());
  object.add_string("File", result.path);
  return object;
}

Object bbp_check(const PiProof& proof) {
  static constexpr orl::Named<PiProof::Result> kResults[] = {
      {PiProof::kPassed, "Passed"}, {PiProof::kFailed, "Failed"}, {PiProof::kNotRun, "Not Run"}};
  Array places;
  for (const PiProofPlace& place : proof.places) {
    Object object;
    add_count(object, "Offset", place.offset);
    object.add_string("Digits", place.given);
    object.add_string("Formula", place.expected);
    places.add_object(std::move(object));
  }
  Object object;
  object.add_string("Result", orl::name_of(kResults, proof.result));
  add_seconds(object, "Microseconds", proof.seconds);
  object.add_array("Places", std::move(places));
  return object;
}

Object checks(const RunReport& report) {
  const auto& clocks = report.clocks;
  Array readings;
  for (const std::string& reading : clocks.clocks) readings.add_string(reading);
  Object object;
  object.add_string("SpotCheck", spot_check_text(report.spot_check.result));
  add_count(object, "SpotCheckDigits", report.spot_check.compared);
  object.add_string("SpotCheckFile", report.spot_check.file);
  if (report.spot_check.result == SpotCheck::kFailed)
    add_count(object, "SpotCheckPosition", report.spot_check.position);
  if (report.pi_proof) object.add_object("BbpCheck", bbp_check(*report.pi_proof));
  object.add_string("TimerSanityCheck", clock_text(clocks.timer, report.contiguous));
  object.add_string("FrequencySanityCheck", clock_text(clocks.frequency, report.contiguous));
  object.add_string("ReferenceClock", clocks.reference);
  object.add_array("ReferenceClocks", std::move(readings));
  object.add_bool("IsDebuggerPresent", report.debugger);
  object.add_bool("IsContiguous", report.contiguous);
  return object;
}

Array lines_of(std::string_view text) {
  Array lines;
  while (!text.empty()) {
    const auto end = std::min(text.find("\r\n"), text.size());
    lines.add_string(std::string(text.substr(0, end)));
    text.remove_prefix(std::min(end + 2, text.size()));
  }
  return lines;
}

}  // namespace

Object results_object(const RunReport& report, const std::string& validation_file) {
  Object object;
  object.add_integer("ResultsVersion", kResultsVersion);
  object.add_string("FileFormat", kValidationVersion);
  object.add_object("Program", program());
  object.add_string("User", report.user);
  object.add_array("System", system(report.system));
  object.add_object("Computation", computation(report));
  object.add_object("Mode", mode(report));
  object.add_node("ConfigurationDump", clean(report.configuration));
  object.add_array("EventLog", lines_of(report.events));
  object.add_object("Times", times(report));
  object.add_object("DecimalDigits", digits(report.dec));
  if (report.hex.digit_count != 0) object.add_object("HexadecimalDigits", digits(report.hex));
  object.add_object("Checks", checks(report));
  object.add_string("ValidationFile", validation_file);
  return object;
}

std::string results_json(const Object& results) { return orl::to_json(*clean(results)); }

void print_results(const Object& results) {
  std::string lines = results_json(results);
  std::erase(lines, '\r');  // no text holds one
  orl::console::print(lines);
}

}  // namespace orvane
