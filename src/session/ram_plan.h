// Everything a computation in memory needs, stated before anything is allocated.
//
// The working block holds the binary number at its start; behind it come, one after the other
//   the constant's scratch | the hexadecimal output |
//   the decimal words with the scratch of the conversion, of the output or of the proofs.
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

  /// The working block, cut. `Arena` is what is left of it.
  template <class Arena>
  struct BuffersOf {
    orl::BigFloat<Word> number;  ///< number_words(), for the constant
    Arena above_number;          ///< for the constant's scratch, then the hexadecimal output
    Word* digits;                ///< decimal_words(), at the start of above_number
    Arena above_digits;          ///< for the conversion, its proof and the decimal output
  };
  using Buffers = BuffersOf<orl::LinearHeapBuffer>;
  /// Throws BufferTooSmallException unless `heap` has working_bytes().
  Buffers cut(orl::LinearHeapBuffer heap) const;

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
  template <class Arena>
  BuffersOf<Arena> lay_out(Arena arena) const;

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
