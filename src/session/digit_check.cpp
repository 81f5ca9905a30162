#include "session/digit_check.h"

#include <algorithm>
#include <memory>

#include "console/console.h"
#include "console/console_status.h"
#include "core/exceptions.h"
#include "core/format.h"
#include "core/number_forms.h"
#include "core/run_timer.h"
#include "digits/digit_text.h"
#include "digits/hashed_digits.h"
#include "memory/aligned_malloc.h"
#include "session/digit_output.h"
#include "session/validation_file.h"
#include "system/limits.h"
#include "threads/parallelism.h"
#include "words/hash.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::InvalidParametersException;
using orl::u8;

constexpr u64 kPageBytes = 4096;
constexpr u64 kWindowBytes = u64{16} << 20;
constexpr u64 kMaxBlockDigits = u64{4} << 20;

// The value of the digits before the point.
u64 integer_part(const std::string& first_digits, orl::u32 radix) {
  u64 value = 0;
  for (const char c : first_digits) {
    if (c == '.') break;
    value = orl::hash_mul_add(value, radix, orl::digit_value(c));
  }
  return value;
}

// The label with its value, on lines of its own where one does not hold both.
std::string reading(const std::string& label, const std::string& value) {
  constexpr u64 kLine = 79, kMargin = 4;
  if (label.size() + value.size() <= kLine) return label + value + "\n";
  return label.substr(0, label.find(':') + 1) + "\n" + std::string(kMargin, ' ') +
         orl::wrapped(value, kMargin) + "\n";
}

std::string differing(const std::string& what, const std::string& file, const std::string& report) {
  if (file == report) return {};
  return reading(what + " of the file:    ", file) + reading(what + " of the report:  ", report);
}

}  // namespace

DigitClaim digit_claim(std::string_view report, orl::u32 radix) {
  const bool decimal = radix == 10;
  DigitClaim claim;
  const std::string digits(report_value(report, decimal ? "Decimal Digits:" : "Hexadecimal Digits:"));
  if (digits.empty() || digits == "Disabled") return claim;
  std::string plain = digits;
  std::erase(plain, ',');
  claim.digits = orl::parse_number(plain, orl::NumberForm::kInteger).value;
  const std::string_view hash =
      report_value(report, decimal ? "Dec Hash: Floor(|x| * 10^dec) mod (2^61 - 1) = "
                                   : "Hex Hash: Floor(|x| * 16^hex) mod (2^61 - 1) = ");
  claim.hash = orl::parse_number(hash, orl::NumberForm::kInteger).value;
  claim.counts = report_value(report, decimal ? "Dec Counts:" : "Hex Counts:");
  claim.sha256 =
      report_value(report, std::string(decimal ? "SHA256-dec" : "SHA256-hex") + "(1 - " + plain + ") = ");
  return claim;
}

std::string check_digits(orl::DigitReader& reader, const DigitClaim& claim, const CheckContext& context) {
  const orl::u32 radix = reader.radix();
  const u64 total = reader.total_digits();
  std::string faults =
      differing("Digits", orl::format_with_commas(total), orl::format_with_commas(claim.digits));
  if (!faults.empty()) return faults;
  reader.check_range(0, total);

  orl::DigitStats stats(radix);
  stats.hash = integer_part(reader.first_digits(), radix);
  orl::DigitHasher hasher(1);
  const u64 block = std::min({orl::block_for_window(reader, context.buffer.size, 2), kMaxBlockDigits, total});
  orl::LinearHeapBuffer window = context.buffer;
  u8* digits = window.cut<u8>(block);
  u8* next = window.cut<u8>(block);
  const auto length_at = [&](u64 done) { return done < total ? std::min(block, total - done) : 0; };
  const auto load = [&](u64 done) {
    if (length_at(done) != 0)
      reader.load_digits(next, done, length_at(done), window, context.parallel.right());
  };
  load(0);
  for (u64 done = 0; done < total; done += block) {
    std::swap(digits, next);
    const u64 length = length_at(done);
    const auto take = [&] {
      stats.append(digits, length, context.parallel.left());
      hasher.append(digits, length);
    };
    if (context.parallel.tds > 1) {
      orl::fork_pair_or_throw(context.parallel.parallelizer, take, [&] { load(done + block); });
    } else {
      take();
      load(done + block);
    }
    context.status.show_count("Verifying...    ", done + length, "  digits hashed");
  }
  faults += differing("Hash", std::to_string(orl::hash_canon(stats.hash)), std::to_string(claim.hash));
  faults += differing("Counts", counts_text(stats.counts), claim.counts);
  if (!claim.sha256.empty()) faults += differing("SHA-256", hasher.finish().sha256(), claim.sha256);
  return faults;
}

int run_digit_check(orl::DigitReader& reader, const std::string& report_path) {
  const std::string report = read_validation_file(report_path);
  if (!print_validation(check_validation_text(report))) return 1;
  const DigitClaim claim = digit_claim(report, reader.radix());
  if (claim.digits == 0) {
    console::println("The report has no digits of this radix.", 'R');
    return 1;
  }
  const orl::AlignedBlock memory(orl::aligned_malloc(kWindowBytes, kPageBytes));
  orl::Parallelism parallelism;
  std::string faults;
  {
    orl::LinearConsoleNode status;
    faults = check_digits(reader, claim, {parallelism.context(), {memory.get(), kWindowBytes}, status});
  }
  console::print(faults, 'R');
  if (!faults.empty()) {
    console::println("The digits are not those of the report.", 'R');
    return 1;
  }
  console::println("All " + orl::format_with_commas(claim.digits) +
                       " digits are those of the report: counts, hash" +
                       (claim.sha256.empty() ? "." : " and SHA-256."),
                   'G');
  return 0;
}

int run_pi_proof(orl::DigitReader& reader) {
  constexpr const char* kFunction = "run_pi_proof()";
  if (reader.radix() != 16 || reader.first_digits() != "3." || reader.total_digits() == 0)
    throw InvalidParametersException(kFunction,
                                     "These are no hexadecimal digits of Pi from its first one on.");
  alignas(kPageBytes) u8 window[4 * kPageBytes];
  orl::Parallelism parallelism;
  const auto digits_at = [&](u64 offset, u64 count) {
    std::string text(count, '\0');
    u8 digits[kPiProofDigits];
    reader.load_digits(digits, offset, count, {window, sizeof window}, parallelism.context());
    orl::digits_to_text(text.data(), digits, count);
    return text;
  };
  PiProof proof;
  {
    orl::LinearConsoleNode status;
    proof = prove_pi(reader.total_digits(), orl::processor_count(), digits_at, status);
  }
  if (proof.places.empty())
    throw InvalidParametersException(kFunction, "There are too few digits for the check, or too many.");
  const char colour = proof.result == PiProof::kPassed ? 'G' : 'R';
  console::println("BBP Check:  " + to_string(proof), colour);
  for (const std::string& line : differing_digits(proof)) console::println("            " + line, colour);
  console::println("Total Time: " + orl::seconds_text(proof.seconds), 'w');
  return proof.result == PiProof::kPassed ? 0 : 1;
}

}  // namespace orvane
