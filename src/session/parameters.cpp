#include "session/parameters.h"

#include <cmath>

#include "console/console.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "digits/digit_writer.h"
#include "files/path_check.h"
#include "session/output_claim.h"
#include "system/limits.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::InvalidParametersException;
using orl::kMinDigitsPerFile;

constexpr u64 kMinHexadecimalDigits = 83;  // the least that are worth kMinDecimalDigits
constexpr u64 kMaxMemoryBytes = 0x6ffffffffffffff9;

void warn(const std::string& text) {
  console::print("Warning: ", 'Y');
  console::println(text, 'Y');
}

void warn_of_few_digits(const std::string& text) {
  warn(text + "\nA compressed file holds at least " + orl::format_with_commas(kMinDigitsPerFile) +
       " digits.");
}

constexpr long double kLog10Of16 = 1.20411998265592478085495557889797L;

// Decimal digits that `digits` hexadecimal ones are worth, rounded up; log10(16) = 1.2041199826559247808...
u64 decimal_equivalent(u64 digits) {
  if (digits > kMaxDecimalDigits) return ~u64{0};
  return static_cast<u64>(std::ceil(static_cast<long double>(digits) * kLog10Of16));
}

}  // namespace

u64 hexadecimal_equivalent(u64 decimal_digits) {
  return static_cast<u64>(static_cast<long double>(decimal_digits) / kLog10Of16);
}

namespace {

void check_digits(u64 decimal_digits, const Constant& constant) {
  if (decimal_digits < kMinDecimalDigits) throw InvalidParametersException("set_digits()", kTooFewDigits);
  if (decimal_digits > constant.max_digits())
    throw InvalidParametersException("set_digits()", "Computation size cannot be larger than " +
                                                         orl::format_with_commas(constant.max_digits()) +
                                                         " decimal digits.");
}

}  // namespace

std::string memory_refusal(u64 needed_bytes) {
  const orl::Limits limits = orl::limits();
  if (needed_bytes <= limits.available_bytes) return {};
  return "This size needs " + orl::format_bytes(needed_bytes) + " of memory.\n" +
         orl::memory_sentence(limits) + ",\nof which " + orl::format_bytes(limits.available_bytes) +
         " are available.\nChoose a smaller size, or end what else uses memory.";
}

u64 Precision::words() const {
  // log2(10) / 64 words per digit, one word for the integer part and one against the rounding of this
  // estimate.
  return static_cast<u64>(static_cast<long double>(digits) * (3.32192809488736234787031942948939L / 64)) + 2;
}

ComputeParameters::ComputeParameters() : constant_(make_constant(static_cast<u64>(ConstantIndex::kPi))) {
  allocator = orl::create_allocator(orl::default_allocator_key());
  digits_changed();
}

void ComputeParameters::set_constant(std::unique_ptr<Constant> constant) {
  constant_ = std::move(constant);
  digits_changed();
}

void ComputeParameters::set_decimal_digits(u64 digits) {
  check_digits(digits, *constant_);
  decimal_digits_ = digits;
  digits_changed();
}

void ComputeParameters::set_hexadecimal_digits(u64 digits) {
  if (digits != 0 && digits < kMinHexadecimalDigits)
    throw InvalidParametersException("set_digits()", std::string(kTooFewDigits) + "\nThose are " +
                                                         std::to_string(kMinHexadecimalDigits) +
                                                         " hexadecimal digits.");
  if (digits != 0) check_digits(decimal_equivalent(digits), *constant_);
  hexadecimal_digits_ = digits;
  digits_changed();
}

void ComputeParameters::digits_changed() {
  precision_.digits = std::max(decimal_digits_, decimal_equivalent(hexadecimal_digits_)) + kGuardDigits;
  if (precision_.digits < kMinDecimalDigits) {
    warn("Precision below minimum. Adjusting to minimum.");
    precision_.digits = kMinDecimalDigits;
  }
  constant_->set_precision(precision_.digits);
  const bool few_hexadecimal = hexadecimal_digits_ != 0 && hexadecimal_digits_ < kMinDigitsPerFile;
  if (digits_per_file_ != 0 && (few_hexadecimal || decimal_digits_ < kMinDigitsPerFile)) {
    warn_of_few_digits("Digits per file below minimum: Disabling compression.");
    digits_per_file_ = 0;
  }
}

void ComputeParameters::request_digits_per_file(u64 digits) {
  requested_digits_per_file_ = digits;
  if (digits == 0)
    digits_per_file_ = 0;
  else if (decimal_digits_ < kMinDigitsPerFile ||
           (hexadecimal_digits_ != 0 && hexadecimal_digits_ < kMinDigitsPerFile))
    warn_of_few_digits("Too few digits to compress.");
  else if (digits >= kMinDigitsPerFile)
    digits_per_file_ = digits;
  else
    warn_of_few_digits("Too few digits for file.");
}

void ComputeParameters::settle_digits_per_file() {
  const bool enough = decimal_digits_ >= kMinDigitsPerFile &&
                      (hexadecimal_digits_ == 0 || hexadecimal_digits_ >= kMinDigitsPerFile);
  // Refusals that still hold were told when they arose.
  if (enough && requested_digits_per_file_ >= kMinDigitsPerFile)
    digits_per_file_ = requested_digits_per_file_;
}

void ComputeParameters::set_output_path(const std::string& path) {
  if (const int reason = orl::why_unwritable(path); reason != 0)
    throw InvalidParametersException("set_output_path()", orl::unwritable_text(path, reason));
  output_path_ = path;
}

void ComputeParameters::copy_shared(const ComputeParameters& other) {
  constant_ = other.constant_->clone();
  decimal_digits_ = other.decimal_digits_;
  hexadecimal_digits_ = other.hexadecimal_digits_;
  precision_ = other.precision_;
  digits_per_file_ = other.digits_per_file_;
  requested_digits_per_file_ = other.requested_digits_per_file_;
  output_path_ = other.output_path_;
  output_digits = other.output_digits;
  verify_conversion = other.verify_conversion;
  json_results = other.json_results;
  overwrite = other.overwrite;
  pi_proof = other.pi_proof;
  orl::Object settings;
  other.parallelism.write_settings(settings);
  parallelism.read_object(settings);
  auto fresh = orl::create_allocator(other.allocator->key());
  fresh->read_object(other.allocator->to_object());
  allocator = std::move(fresh);
}

std::string SwapParameters::unavailable() const {
  return "Swap mode is not available in this version yet. Use -mode:ram.";
}

bool SwapParameters::check_parameters() {
  throw InvalidParametersException("SwapParameters::check_parameters()", unavailable());
}

int SwapParameters::run(int) { return check_parameters() ? 0 : 1; }

void SwapParameters::set_memory_bytes(u64 bytes) { memory_setting_ = std::min(bytes, kMaxMemoryBytes); }

u64 SwapParameters::memory_bytes() const {
  return memory_setting_ != 0 ? memory_setting_ : orl::total_memory_bytes() / 8 * 7;
}

RamParameters::RamParameters() = default;
RamParameters::~RamParameters() = default;

ModeHolder::ModeHolder() : ram_(std::make_unique<RamParameters>()), current_(ram_.get()) {}

void ModeHolder::set_mode(const std::string& word) {
  ComputeParameters* next;
  if (word == "ram") {
    next = ram_.get();
  } else if (word == "swap") {
    if (!swap_) swap_ = std::make_unique<SwapParameters>();
    next = swap_.get();
  } else {
    throw InvalidParametersException("set_mode()", "Invalid Mode: " + word);
  }
  if (next == current_) return;
  next->copy_shared(*current_);
  current_ = next;
}

SwapParameters& ModeHolder::swap_for(const char* option) {
  if (!swap())
    throw InvalidParametersException("swap_for()",
                                     std::string("Option ") + option + " is not supported for this mode.");
  return *swap_;
}

}  // namespace orvane
