// What one thread does for one test of the stress tester, in memory of its own.
//
// Memory   operands first, then what the operation needs: product, tables, scratch. Nothing of it is shared
//          with another thread, so an error belongs to the core that reports it.
// Proof    every round compares its result with an answer known beforehand; when the test ends, all that has
//          lain in memory is compared with what was put there, so that no bit flips unnoticed.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "core/uncopied.h"
#include "memory/linear_buffer.h"
#include "multiply/algorithm.h"

namespace orvane {

using orl::u64;

/// See the head of this file.
class StressWork : orl::Uncopied {
 public:
  virtual ~StressWork() = default;

  /// Bytes of memory in use, and the operands' part of them, which comes first.
  virtual u64 bytes() const = 0;
  virtual u64 operand_bytes() const = 0;
  /// "120 x 4,096", in the test's unit.
  virtual std::string size_text() const = 0;

  /// Fills `memory`, at least bytes() bytes, from the seed. May be called again. False when `stop` became true first:
  /// nothing may be done with the memory then.
  virtual bool prepare(orl::LinearHeapBuffer memory, u64 seed, const std::atomic<bool>& stop) = 0;
  /// One operation, after prepare(). Throws AlgorithmFailedException "Checksum Mismatch".
  virtual void round() = 0;
  /// Compares all that rounds only read. Throws AlgorithmFailedException "Checksum Mismatch".
  virtual void check_memory() = 0;
  /// What lies in memory beside the operands and is only read, after prepare(); empty where there is none.
  virtual orl::LinearHeapBuffer tables() = 0;
};

/// Products of many operands, one after the other, in a share of memory.
struct KnownAnswerPlan {
  const orl::Algorithm& algorithm;
  u64 workspace_bytes;  ///< largest memory for the product, the tables and the scratch
  u64 unit_bits;        ///< bits of the unit in which sizes are shown
};
/// The largest operands whose workspace takes a quarter of `share_bytes` and no more than the plan allows,
/// and as many of them as the rest holds. Null when not even small ones fit.
std::unique_ptr<StressWork> plan_known_answers(const KnownAnswerPlan& plan, u64 share_bytes);

/// Sums of the digit extractor's terms: as many ranges of terms, with their sums, as the share holds. Null
/// when it is less than a page.
std::unique_ptr<StressWork> plan_bbp(u64 share_bytes);

/// Throws AlgorithmFailedException `function`, "Checksum Mismatch".
[[noreturn]] void throw_mismatch(const char* function);

}  // namespace orvane
