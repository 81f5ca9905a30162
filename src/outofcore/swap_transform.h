// Transforms of numbers on disks: so far how fast they are while the disks are at work.
#pragma once

#include "arrays/raid_array.h"
#include "memory/linear_buffer.h"
#include "threads/parallelizer.h"

namespace orl {

/// What ran at the same time, in bytes of files per second.
struct OverlapSpeeds {
  u64 operand_words = 0;   ///< 64-bit words of the squares that were made
  double computation = 0;  ///< what the computation would consume if transfers took no time
  double disk = 0;         ///< what the disks moved
  double ratio() const { return disk / computation; }
};

/// The transforms of the I/O benchmark.
class SwapTransform {
 public:
  /// Bytes of files that a square moves for each byte of its result when its transforms do not fit in memory: its operand
  /// once, its residues out and in for the primes that are not in memory, the result once.
  static constexpr u64 kTrafficOfSquare = 8;

  /// Squares random operands by "VST" while the transfers that a square of this length would take run beside it, in the
  /// largest size that fits `memory` and half of `file`. Takes some seconds. Throws InvalidParametersException "Unable to
  /// find a test that fits within the memory limit.".
  static OverlapSpeeds bench_overlap(const SwapDescriptor& disk, FarMemory& file, LinearHeapBuffer memory,
                                     ParallelContext parallel);
};

}  // namespace orl
