// Everything a computation in memory needs, stated before anything is allocated.
//
// The working block holds, from its start: the binary number; then the largest of
//   the constant's scratch | the decimal words with the scratch of the conversion, of its proof or of the
//   output.
// Buffers of a finished stage are reused by the next.
#pragma once

#include <memory>

#include "constants/constant_plan.h"
#include "functions/radix_conversion.h"
#include "session/parameters.h"

namespace orvane {

/// Immutable; holds the plans of the stages.
class RamPlan {
 public:
  /// Throws LimitExceededException when a product would be larger than the multiplication tables reach, and
  /// InvalidParametersException when the constant cannot be computed.
  RamPlan(const Constant& constant, u64 precision_words, u64 decimal_digits, u64 tds, bool verify);

  u64 working_bytes() const { return working_bytes_; }
  /// Bytes of the twiddle tables.
  u64 table_bytes() const;
  u64 table_bits() const { return table_bits_; }

  u64 precision_words() const { return precision_words_; }
  u64 number_words() const { return number_words_; }
  u64 decimal_words() const { return conversion_.digit_words(); }
  const orl::ConstantPlan<Word>& constant() const { return *constant_; }
  const orl::ConvertPlanP<Word>& conversion() const { return conversion_; }
  /// Null when the conversion is not to be proved.
  const orl::VerifyConversion<Word>* verification() const { return verification_.get(); }

 private:
  u64 precision_words_;
  std::unique_ptr<orl::ConstantPlan<Word>> constant_;
  orl::ConvertPlanP<Word> conversion_;
  std::unique_ptr<orl::VerifyConversion<Word>> verification_;
  u64 number_words_ = 0;
  u64 working_bytes_ = 0;
  u64 table_bits_ = 0;
};

/// Decimal digits, plus guard digits, as words of 19.
u64 decimal_words_for(u64 decimal_digits);

/// The most decimal digits of `constant` for which a plan can be made, up to `limit`; 0 if there are none.
u64 largest_possible_digits(const Constant& constant, u64 tds, bool verify, u64 limit);

}  // namespace orvane
