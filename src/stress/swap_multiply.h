// A product of two numbers on disks whose hash is known beforehand: the stress test of a disk array.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "arrays/bytes_per_seek.h"
#include "arrays/raid_descriptor.h"
#include "memory/allocators.h"
#include "threads/parallelism.h"

namespace orvane {

using orl::u64;

/// What the test is asked to do.
struct SwapMultiplySettings {
  /// The defaults for this machine.
  SwapMultiplySettings();

  u64 memory_bytes;         ///< of everything, buffers of the arrays included
  u64 operand_setting = 0;  ///< bytes of each operand; 0: half of the memory
  std::string algorithm = "C17";
  orl::BytesPerSeek bytes_per_seek;
  orl::R03::Raid03Descriptor raid;
  /// Where there is one, the second operand and the product lie on it, and everything else on the first.
  std::optional<orl::R03::Raid03Descriptor> second;
  orl::Parallelism parallelism;
  std::unique_ptr<orl::MemoryAllocator> allocator;

  u64 operand_bytes() const { return operand_setting != 0 ? operand_setting : memory_bytes / 2; }
  /// Buffers of the arrays together.
  u64 buffer_bytes() const;
  /// Why the test cannot run, and what to do; empty when it can.
  std::string refusal() const;
};

/// Makes operands A and B, multiplies them and compares the hash of the product with the product of the hashes; prints each
/// stage with its time. Returns the status of the process: 1 when the test has failed. Faults of an array that the user ends
/// are thrown.
int run_swap_multiply(SwapMultiplySettings& settings);

}  // namespace orvane
