// A computed number as the output stages want it.
#pragma once

#include "numbers/big_float.h"
#include "session/constant.h"

namespace orvane {

/// Sets the number to a fixed layout, [base, base + words): the word at index words - 1 is the integer part.
/// Zeros fill what the number does not reach; what lies below the lowest word is dropped. `base` may be where
/// the number lies. Throws InvalidParametersException from "words_to_dec()" for a number that is not
/// positive or not near 1.
void lay_out(const orl::BigFloat<Word>& number, Word* base, u64 words);

}  // namespace orvane
