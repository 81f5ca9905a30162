// What the session asks of a constant: its memory before anything is allocated, then its value.
//
// A plan is built for a precision and a thread width, never changes afterwards, and may be shared; its heap
// belongs to one run. Building one whose largest product has no row in the multiplication table throws
// LimitExceededException.
#pragma once

#include <memory>

#include "numbers/ram_store.h"

namespace orl {

/// A constant over a store; see the head of this file.
template <class Store>
class BasicConstantPlan {
 public:
  virtual ~BasicConstantPlan() = default;

  /// What run() takes: bytes of heap, words of `out`, the largest product.
  virtual Need need() const = 0;
  /// The constant at the plan's precision of p words; `out` has a capacity of need().out_words, of which at
  /// most p + 6 are filled, the lowest as guards. Returns the hash that out's words must have, a lazy residue
  /// of the value that was known before the last proof read them. Cuts need().ram_bytes from `heap` and
  /// nothing else; ctx has the tds that the plan was built for. Prints its stages on ctx.status. Throws
  /// BufferTooSmallException for a short heap, BSRModularCheckFailedException or AlgorithmFailedException
  /// when the machine has miscomputed.
  virtual u64 run(const RunContext& ctx, Store::Frame& frame, Store::Number& out,
                  Store::Arena heap) const = 0;
};

template <class W>
using ConstantPlan = BasicConstantPlan<RamStore<W>>;

/// What make_e, make_pi and the like give.
template <class Store>
using ConstantPlanPointer = std::unique_ptr<BasicConstantPlan<Store>>;

}  // namespace orl
