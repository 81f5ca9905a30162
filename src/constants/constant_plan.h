// What the session asks of a constant: its memory before anything is allocated, then its value.
//
// A plan is built for a precision and a thread width, never changes afterwards, and may be shared; its heap
// belongs to one run. Building one whose largest product has no row in the multiplication table throws
// LimitExceededException.
#pragma once

#include "numbers/ram_store.h"

namespace orl {

template <class Store>
class BasicConstantPlan {
 public:
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;

  virtual ~BasicConstantPlan() = default;

  virtual Need need() const = 0;
  /// The constant at the plan's precision of p words; `out` has a capacity of need().out_words, of which at
  /// most p + 6 are filled, the lowest as guards. Cuts need().ram_bytes from `heap` and nothing else; ctx has
  /// the tds that the plan was built for. Prints its stages on ctx.status. Throws BufferTooSmallException for
  /// a short heap, BSRModularCheckFailedException or AlgorithmFailedException when the machine has
  /// miscomputed.
  virtual void run(const RunContext& ctx, Number& out, Arena heap) const = 0;
};

template <class W>
using ConstantPlan = BasicConstantPlan<RamStore<W>>;

}  // namespace orl
