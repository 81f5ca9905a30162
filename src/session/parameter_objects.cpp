// The settings of a computation as configuration objects: the form of action files, and the dump of reports.
#include <algorithm>

#include "config/located.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "session/parameters.h"
#include "session/ram_plan.h"
#include "system/limits.h"

namespace orvane {
namespace {

using orl::Object;
using orl::read_key;
using orl::read_optional_key;
using orl::s64;

// What a process can map on x86-64.
constexpr u64 kAddressSpaceBytes = u64{1} << 47;

Object with_text(u64 value, const std::string& text) {
  Object object;
  object.add_integer("Value", static_cast<s64>(value));
  object.add_string("DisplayText", text);
  return object;
}

Object dump_constant(const Constant& constant) {
  Object object;
  constant.describe(object);
  object.add_string("NameShort", constant.name());
  object.add_string("NameLong", constant.name_long());
  object.add_string("AlgorithmShort", constant.algorithm_short());
  object.add_string("AlgorithmLong", constant.algorithm_long());
  constant.write_formula(object);
  return object;
}

Object size_object(const ComputeParameters& parameters) {
  Object object;
  object.add_integer("DecimalDigits", static_cast<s64>(parameters.decimal_digits()));
  object.add_integer("HexadecimalDigits", static_cast<s64>(parameters.hexadecimal_digits()));
  return object;
}

Object output_object(const ComputeParameters& parameters, const std::string& path) {
  Object format;
  format.add_bool("OutputEnable", parameters.output_digits);
  // One compressed file is -1, as on the command line.
  format.add_integer("DigitsPerFile", static_cast<s64>(parameters.digits_per_file()));
  format.add_string("Path", path);
  format.add_string("DisplayText", format_text(parameters.digits_per_file()));
  Object object;
  object.add_object("Format", std::move(format));
  return object;
}

void write_output_switches(Object& object, const ComputeParameters& parameters) {
  object.add_bool("OutputVerify", parameters.verify_conversion);
  object.add_bool("JsonResults", parameters.json_results);
  object.add_bool("Overwrite", parameters.overwrite);
  if (parameters.pi_proof)
    object.add_bool("BbpCheck", *parameters.pi_proof);
  else
    object.add_string("BbpCheck", "auto");
}

Object dump_output(const ComputeParameters& parameters) {
  Object object = output_object(parameters, path_text(parameters.output_path()));
  const u64 bytes = parameters.output_bytes();
  object.add_object("Size", with_text(bytes, orl::format_bytes(bytes)));
  write_output_switches(object, parameters);
  return object;
}

Object dump_mode(const ComputeParameters& parameters) {
  Object object;
  object.add_string("value", parameters.mode_key());
  object.add_string("DisplayText", parameters.mode_name());
  return object;
}

Object dump_allocator(const orl::MemoryAllocator& allocator) {
  Object object = allocator.to_object();
  object.add_string("DisplayText", allocator.to_string());
  return object;
}

u64 count_of(const Object& object, const char* key) {
  const s64 count = object.get_count(key);
  if (count < 0)
    throw orl::InvalidParametersException("count_of()", std::to_string(count) + " is out of range.");
  return static_cast<u64>(count);
}

std::unique_ptr<Constant> read_constant(const Object& parent) {
  const Object& object = parent.get_object("Constant");
  std::unique_ptr<Constant> constant;
  read_key(object, "Constant",
           [&] { constant = make_constant(constant_index(object.get_string("Constant"))); });
  constant->from_object(parent);
  return constant;
}

void read_size(const Object& object, ComputeParameters& parameters) {
  read_optional_key(object, "DecimalDigits",
                    [&] { parameters.set_decimal_digits(count_of(object, "DecimalDigits")); });
  read_optional_key(object, "HexadecimalDigits",
                    [&] { parameters.set_hexadecimal_digits(count_of(object, "HexadecimalDigits")); });
}

void read_format(const Object& object, ComputeParameters& parameters) {
  read_optional_key(object, "OutputEnable",
                    [&] { parameters.output_digits = object.get_bool("OutputEnable"); });
  read_optional_key(object, "DigitsPerFile", [&] {
    parameters.request_digits_per_file(static_cast<u64>(object.get_count("DigitsPerFile")));
  });
  read_optional_key(object, "Path", [&] {
    const std::string& path = object.get_string("Path");
    if (!path.empty()) parameters.set_output_path(path);
  });
}

void read_output(const Object& object, ComputeParameters& parameters) {
  read_optional_key(object, "Format", [&] { read_format(object.get_object("Format"), parameters); });
  read_optional_key(object, "OutputVerify",
                    [&] { parameters.verify_conversion = object.get_bool("OutputVerify"); });
  read_optional_key(object, "JsonResults", [&] { parameters.json_results = object.get_bool("JsonResults"); });
  read_optional_key(object, "Overwrite", [&] { parameters.overwrite = object.get_bool("Overwrite"); });
  read_optional_key(object, "BbpCheck", [&] {
    parameters.pi_proof.reset();
    if (object.get_string("BbpCheck") != "auto") parameters.pi_proof = object.get_bool("BbpCheck");
  });
}

std::unique_ptr<orl::MemoryAllocator> read_allocator(const Object& object) {
  std::unique_ptr<orl::MemoryAllocator> allocator;
  read_key(object, "Allocator", [&] { allocator = orl::create_allocator(object.get_string("Allocator")); });
  allocator->read_object(object);
  return allocator;
}

}  // namespace

std::string path_text(const std::string& path) { return path.empty() ? "Default Path" : path; }

std::string format_text(u64 digits_per_file) {
  if (digits_per_file == 0) return "None - Write digits to a text file.";
  if (digits_per_file == kOneFile) return "Compress digits into one .ovd file.";
  return "Compress with " + orl::format_with_commas(digits_per_file) + " digits per file.";
}

u64 ComputeParameters::output_bytes_of(orl::u32 radix) const {
  if (!output_digits) return 0;
  constexpr u64 kFirstDigits = 2;  // one digit and the point
  const u64 digits = radix == 10 ? decimal_digits_ : hexadecimal_digits_;
  const u64 digits_per_word = radix == 10 ? 19 : 16;
  if (digits == 0) return 0;
  if (digits_per_file_ == 0) return digits + kFirstDigits;
  // Each file of a set ends with a whole word.
  const u64 whole_files = digits / digits_per_file_, rest = digits % digits_per_file_;
  const auto words = [&](u64 count) { return (count + digits_per_word - 1) / digits_per_word; };
  return sizeof(Word) * (whole_files * words(digits_per_file_) + words(rest));
}

Object ComputeParameters::dump_memory() const {
  Object object;
  orl::Array warnings, errors;
  if (const std::string refusal = unavailable(); !refusal.empty()) errors.add_string(refusal);
  try {
    const u64 bytes = memory_needed();
    object.add_object("RequiredRam", with_text(bytes, orl::format_bytes(bytes)));
    if (bytes >= kAddressSpaceBytes)
      errors.add_string("Insufficient Address Space");
    else if (const orl::Limits limits = orl::limits(); bytes > limits.memory_bytes)
      warnings.add_string("Insufficient Memory: " + orl::memory_sentence(limits) + ".");
  } catch (const orl::InvalidParametersException& e) {
    if (errors.size() == 0) errors.add_string(e.message());
  }
  object.add_array("Warnings", std::move(warnings));
  object.add_array("Errors", std::move(errors));
  return object;
}

Object ComputeParameters::configuration_dump() const {
  Object object;
  object.add_object("Constant", dump_constant(constant()));
  object.add_object("ComputeSize", size_object(*this));
  object.add_object("Output", dump_output(*this));
  object.add_object("Mode", dump_mode(*this));
  object.add_object("Parallelism", parallelism.to_object());
  object.add_object("Allocator", dump_allocator(*allocator));
  object.add_object("Memory", dump_memory());
  dump_mode_settings(object);
  return object;
}

Object ComputeParameters::to_object() const {
  Object object;
  object.add_string("Mode", mode_key());
  constant().to_object(object);
  object.add_object("ComputeSize", size_object(*this));
  Object output = output_object(*this, output_path());
  write_output_switches(output, *this);
  object.add_object("Output", std::move(output));
  Object threads;
  parallelism.write_settings(threads);
  object.add_object("Parallelism", std::move(threads));
  object.add_object("Allocator", allocator->to_object());
  write_mode_settings(object);
  return object;
}

void ComputeParameters::from_object(const Object& object) {
  read_key(object, "Constant", [&] { set_constant(read_constant(object)); });
  read_optional_key(object, "ComputeSize", [&] { read_size(object.get_object("ComputeSize"), *this); });
  read_optional_key(object, "Output", [&] { read_output(object.get_object("Output"), *this); });
  read_optional_key(object, "Parallelism",
                    [&] { parallelism.read_object(object.get_object("Parallelism")); });
  read_optional_key(object, "Allocator", [&] { allocator = read_allocator(object.get_object("Allocator")); });
  read_mode_settings(object);
  refuse_unknown_keys(object, to_object());
}

void SwapParameters::write_mode_settings(Object& object) const {
  object.add_integer("Memory", static_cast<s64>(memory_setting_));
  object.add_integer("BytesPerSeek", static_cast<s64>(bytes_per_seek_.setting()));
  object.add_object("RaidFile", raid.to_object());
}

void SwapParameters::read_mode_settings(const Object& object) {
  read_optional_key(object, "Memory", [&] { set_memory_bytes(count_of(object, "Memory")); });
  read_optional_key(object, "BytesPerSeek", [&] {
    const u64 bytes = count_of(object, "BytesPerSeek");
    if (bytes == 0)
      reset_bytes_per_seek();
    else
      set_bytes_per_seek(bytes);
  });
  read_optional_key(object, "RaidFile", [&] { raid.read_object(object.get_object("RaidFile")); });
}

void SwapParameters::dump_mode_settings(Object& object) const {
  object.add_object("BytesPerSeek", with_text(bytes_per_seek(), orl::format_bytes(bytes_per_seek())));
  object.add_object("RaidFile", raid.dump());
}

void ModeHolder::from_object(const Object& object) {
  ModeHolder fresh;
  read_optional_key(object, "Mode", [&] { fresh.set_mode(object.get_string("Mode")); });
  fresh.current().from_object(object);
  *this = std::move(fresh);
}

u64 RamParameters::required_bytes() const {
  const std::string refusal = constant().unavailable();
  if (!refusal.empty()) throw orl::InvalidParametersException("required_bytes()", refusal);
  const u64 tds = parallelism.tds();
  try {
    const RamPlan plan(constant(), precision().words(), decimal_digits(), tds, verify_conversion);
    return plan.working_bytes() + plan.table_bytes();
  } catch (const orl::LimitExceededException&) {
    const u64 largest = largest_possible_digits(constant(), tds, verify_conversion, precision().digits);
    throw orl::InvalidParametersException(
        "required_bytes()", "Computation size cannot be larger than " + orl::format_with_commas(largest) +
                                " decimal digits with this version's multiplication.");
  }
}

}  // namespace orvane
