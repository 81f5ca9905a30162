// The settings of a computation as configuration objects: the dump of reports.
#include "compute/parameters.h"
#include "compute/ram_plan.h"
#include "frame/console.h"
#include "frame/exceptions.h"
#include "system/machine.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::Object;
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
  return object;
}

Object dump_size(const ComputeParameters& parameters) {
  Object object;
  object.add_integer("DecimalDigits", static_cast<s64>(parameters.decimal_digits()));
  object.add_integer("HexadecimalDigits", static_cast<s64>(parameters.hexadecimal_digits()));
  return object;
}

Object dump_output(const ComputeParameters& parameters) {
  Object format;
  format.add_bool("OutputEnable", parameters.output_digits);
  // One compressed file is -1, as on the command line.
  format.add_integer("DigitsPerFile", static_cast<s64>(parameters.digits_per_file()));
  format.add_string("Path", parameters.output_path().empty() ? "Default Path" : parameters.output_path());
  format.add_string("DisplayText", format_text(parameters.digits_per_file()));
  Object object;
  object.add_object("Format", std::move(format));
  object.add_object("Size",
                    with_text(parameters.output_bytes(), console::format_bytes(parameters.output_bytes())));
  object.add_bool("OutputVerify", parameters.verify_conversion);
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

}  // namespace

std::string format_text(u64 digits_per_file) {
  if (digits_per_file == 0) return "None - Write digits to a text file.";
  if (digits_per_file == kOneFile) return "Compress digits into one .ovd file.";
  return "Compress with " + console::format_with_commas(digits_per_file) + " digits per file.";
}

u64 ComputeParameters::output_bytes() const {
  if (!output_digits) return 0;
  constexpr u64 kDecimalDigitsPerWord = 19, kHexadecimalDigitsPerWord = 16;
  const auto bytes = [&](u64 digits, u64 digits_per_word) {
    constexpr u64 kFirstDigits = 2;  // one digit and the point
    if (digits == 0) return u64{0};
    if (digits_per_file_ == 0) return digits + kFirstDigits;
    // Each file of a set ends with a whole word.
    const u64 whole_files = digits / digits_per_file_, rest = digits % digits_per_file_;
    const auto words = [&](u64 count) { return (count + digits_per_word - 1) / digits_per_word; };
    return sizeof(Word) * (whole_files * words(digits_per_file_) + words(rest));
  };
  return bytes(decimal_digits_, kDecimalDigitsPerWord) +
         bytes(hexadecimal_digits_, kHexadecimalDigitsPerWord);
}

Object ComputeParameters::dump_memory() const {
  Object object;
  orl::Array warnings, errors;
  try {
    const u64 bytes = memory_needed();
    object.add_object("RequiredRam", with_text(bytes, console::format_bytes(bytes)));
    if (bytes >= kAddressSpaceBytes)
      errors.add_string("Insufficient Address Space");
    else if (bytes > orl::total_memory_bytes())
      warnings.add_string("Insufficient Memory: this machine has " +
                          console::format_bytes(orl::total_memory_bytes()) + ".");
  } catch (const orl::InvalidParametersException& e) {
    errors.add_string(e.message());
  }
  object.add_array("Warnings", std::move(warnings));
  object.add_array("Errors", std::move(errors));
  return object;
}

Object ComputeParameters::configuration_dump() const {
  Object object;
  object.add_object("Constant", dump_constant(constant()));
  object.add_object("ComputeSize", dump_size(*this));
  object.add_object("Output", dump_output(*this));
  object.add_object("Mode", dump_mode(*this));
  object.add_object("Parallelism", parallelism.to_object());
  object.add_object("Allocator", dump_allocator(*allocator));
  object.add_object("Memory", dump_memory());
  return object;
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
        "required_bytes()", "Computation size cannot be larger than " + console::format_with_commas(largest) +
                                " decimal digits with this version's multiplication.");
  }
}

}  // namespace orvane
