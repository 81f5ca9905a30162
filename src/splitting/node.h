// A node of a binary splitting: up to four exact numbers of one range of terms, as many as its kind has.
//
// Numbers are counted in the order of the kind's leaf. In the kinds of a fraction they are P, Q and, where
// there is one, R. Each has a buffer of its own, and a plan states the capacity of each (NodeWords).
#pragma once

#include <array>

#include "core/round_up.h"
#include "numbers/exact_float.h"

namespace orl {

inline constexpr u32 kMaxNodeNumbers = 4;

/// Words of each number of a node; 0 for numbers that the kind does not have.
using NodeWords = std::array<u64, kMaxNodeNumbers>;

/// The numbers of a node. Exponents are 0 as long as nothing is cut.
template <class W>
struct SeriesNode {
  std::array<ExactFloat<W>, kMaxNodeNumbers> numbers;
  u32 count = 0;

  static constexpr u32 kP = 0, kQ = 1, kR = 2;

  /// Number `i`, below count.
  ExactFloat<W>& operator[](u32 i) { return numbers[i]; }
  const ExactFloat<W>& operator[](u32 i) const { return numbers[i]; }
  ExactFloat<W>& P() { return numbers[kP]; }
  ExactFloat<W>& Q() { return numbers[kQ]; }
  ExactFloat<W>& R() { return numbers[kR]; }
  const ExactFloat<W>& P() const { return numbers[kP]; }
  const ExactFloat<W>& Q() const { return numbers[kQ]; }
  const ExactFloat<W>& R() const { return numbers[kR]; }

  const ExactFloat<W>* begin() const { return numbers.data(); }
  const ExactFloat<W>* end() const { return numbers.data() + count; }
  ExactFloat<W>* begin() { return numbers.data(); }
  ExactFloat<W>* end() { return numbers.data() + count; }

  /// The longest number's words.
  u64 longest() const {
    u64 words = 0;
    for (const ExactFloat<W>& x : *this) words = x.L > words ? x.L : words;
    return words;
  }
};

/// The largest of the words of a node.
constexpr u64 longest_of(const NodeWords& words) {
  u64 longest = 0;
  for (const u64 n : words) longest = n > longest ? n : longest;
  return longest;
}

}  // namespace orl
