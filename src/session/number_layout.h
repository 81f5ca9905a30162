// A computed number as the output stages want it.
#pragma once

#include "numbers/big_float.h"
#include "session/constant.h"

namespace orvane {

/// A number below W^1 and at least W^-1 on `count` words with the point below the highest: words[count - 1] is
/// the integer part.
struct FixedNumber {
  Word* words;
  u64 count;
  u64 hash;  ///< of the words as one integer, canonical
};

/// Cuts `number` to the fixed layout of `count` words, within its own buffer, whose size is at least `count`:
/// where it lies when there is room for the words that it lacks, else from the start of the buffer. Zeros fill
/// what the number does not reach; what lies below the lowest word is dropped.
///
/// `number_hash` is the residue of the number's value, as its makers proved it. That of the result comes from
/// it and from what is dropped, never from the words that are kept; comparing the two proves the layout.
///
/// Throws InvalidParametersException from "words_to_dec()" for a number that is not positive or not near 1, and
/// BufferTooSmallException from "lay_out()".
FixedNumber lay_out(const orl::BigFloat<Word>& number, u64 number_hash, u64 count,
                    orl::ParallelContext parallel);

}  // namespace orvane
