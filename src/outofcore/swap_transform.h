// How fast transforms of numbers on disks are, while the disks are at work.
#pragma once

#include "arrays/raid_array.h"
#include "memory/linear_buffer.h"
#include "threads/parallelizer.h"

namespace orl {

/// What ran at the same time, in bytes of files per second.
struct OverlapSpeeds {
  u64 operand_words = 0;   ///< 64-bit words of the operand that was squared
  double computation = 0;  ///< what the computation would consume if transfers took no time
  double disk = 0;         ///< what the disks moved
  double ratio() const { return disk / computation; }
};

/// What the I/O benchmark's transforms may take.
struct OverlapLimits {
  u64 bytes_per_seek = 4096;
  u64 disk_bytes = 0;  ///< of all files
};

/// The transforms of the I/O benchmark.
class SwapTransform {
 public:
  /// Squares a random number on the disks by groups of primes, in the largest size of which operand, residues and square fit
  /// the limits, as often as a few seconds allow, and proves each square. Throws InvalidParametersException "Unable to find
  /// a test that fits within the memory limit.".
  static OverlapSpeeds bench_overlap(SwapDescriptor& disk, const OverlapLimits& limits,
                                     LinearHeapBuffer memory, ParallelContext parallel);
};

}  // namespace orl
