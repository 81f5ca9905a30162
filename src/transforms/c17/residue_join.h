// From residues to words: the Chinese remainder theorem by runs of points, and the carries between runs.
//
// A run is a range of consecutive points, a multiple of 8, that is joined from its first point to its last by
// any number of calls of ResidueKernels::join; any number of runs may go side by side. A run's coefficients
// sum to its words and an overflow, which belongs to the words after it.
#pragma once

#include <bit>

#include "transforms/c17/residue_primes.h"
#include "transforms/common/transform_records.h"

namespace orl {

/// The state of a run. Words are of 64 bits unless said otherwise, and count from the product's first.
struct ResidueJoinRun {
  static constexpr u32 kHead = 4;

  WordWindow window;
  u64 begin, end;     ///< its words
  u64 word;           ///< the next
  u64 offset;         ///< what a coefficient's top part must not fall below, negated
  u32 limit_bits;     ///< of a coefficient's top part plus offset
  bool dropped_ones;  ///< whether all words from the head to the window's begin (or the run's end) are ones
  u64 head[kHead];    ///< its first words
  u64 seen[8];        ///< all top parts plus offset, or-ed
  /// Last lanes: of the points so far, the limbs that reach over the points to come, and a carry. They stand
  /// from pending[7] on; below are other lanes.
  u64 pending[13];

  /// 0 if all coefficients were within their bits, or how many bits the largest has above them.
  u32 excess_bits() const;
};

/// A run of points [begin, end), multiples of 8, of a product of `row`.
ResidueJoinRun start_residue_run(const ResidueRow& row, ProductRing ring, u64 begin, u64 end,
                                 WordWindow window);

/// Takes the run's next words when some of them are its first or stand outside the window.
void place_residue_words(ResidueJoinRun& run, const u64* words, u64 count);

/// What a run leaves to the words after it: a signed number, two's complement.
struct ResidueOverflow {
  u64 word[ResidueJoinRun::kHead] = {};

  /// Adds value 2^shift.
  void add(s64 value, u32 shift);
  void negate();
  bool negative() const { return word[ResidueJoinRun::kHead - 1] >> 63; }
  /// Adds this to the words at x; returns the carry, -1 to 1.
  s64 add_to(u64 (&x)[ResidueJoinRun::kHead]) const;
};
/// That of a finished run of points modulo P primes.
ResidueOverflow residue_overflow(const ResidueJoinRun& run, u32 P);

/// Adds the overflows of finished runs, which follow each other, to the words of the next; returns what leaves the last.
ResidueOverflow chain_residue_runs(const ResidueRow& row, ResidueJoinRun* runs, u64 count);
/// Adds the overflows of finished runs, which follow each other, to the words after them. Those of a cyclic
/// or negacyclic product are whole, with all words in the window, and its end wraps to its begin. True for a
/// negacyclic product that is W^n, whose words are then zero.
bool resolve_residue_runs(const ResidueRow& row, ProductRing ring, ResidueJoinRun* runs, u64 count);

}  // namespace orl
