// The types of a computation in RAM, for the long functions that are written once over a store.
//
// A store says what numbers are, where they lie and what a plan may spend. The definitions of such functions
// stand in a file *.body.h, which is included where they are instantiated for a store.
#pragma once

#include "memory/sizing_arena.h"
#include "multiply/algorithm_table.h"
#include "numbers/big_float.h"
#include "numbers/exact_float.h"
#include "numbers/run_context.h"
#include "numbers/transform.h"

namespace orl {

/// Numbers, digits and scratch in memory.
template <class W>
struct RamStore {
  using Word = W;
  using Number = BigFloat<W>;
  using Exact = ExactFloat<W>;
  using Digits = W*;
  using Transform = BigFloatTransformR<W>;
  using Arena = LinearHeapBuffer;
  using Sizer = SizingArena;  ///< what a layout is run over to plan it
  using Frame = NullStackFrame;
  /// What the verbs of a number take beside their operands.
  using Scratch = MultiplyContext;

  /// What a plan may spend.
  struct Budget {
    u64 tds;
    Budget(u64 tasks) : tds(tasks) {}  // implicit: in RAM the number of tasks is all there is
  };

  /// Zero, with room for `words` words; no number at all for 0 words. `name` is that of its file, where
  /// numbers have one. `AnyArena` is Arena or Sizer.
  template <class AnyArena>
  static Number number(AnyArena& arena, u64 words, const char* /*name*/) {
    return words == 0 ? Number() : Number(arena.template cut<W>(words), words);
  }
  template <class AnyArena>
  static Exact exact(AnyArena& arena, u64 words, const char* /*name*/) {
    return words == 0 ? Exact() : Exact(arena.template cut<W>(words), words);
  }
  /// A number with the hash that its words must have, and back; the words stay where they are.
  static Exact as_exact(const Number& x, u64 hash) {
    auto exact = in_the_buffer_of<Exact>(x);
    exact.hash = hash;
    return exact;
  }
  static Number as_number(const Exact& x) { return in_the_buffer_of<Number>(x); }
  template <class AnyArena>
  static Digits digits(AnyArena& arena, u64 words, const char* /*name*/) {
    return arena.template cut<W>(words);
  }

  /// What `layout`, a function of a Sizer&, takes of memory and tables.
  template <class Layout>
  static Need need_of(Layout&& layout) {
    return layout_need(layout);
  }
  /// Scratch and tables of set_mul for a product of `words` words whose top `window` words are wanted.
  static Need product_need(u64 words, u64 window, const Budget& budget) {
    Need need;
    need.ram_bytes = basic_table<W>().max_bounded_sizes(words, budget.tds, window).product_bytes;
    need.table_bits = words * 8 * sizeof(W);
    return need;
  }
  static Scratch scratch(const RunContext& ctx, Arena arena) { return ctx.multiply(arena); }

 private:
  template <class To, class From>
  static To in_the_buffer_of(const From& x) {
    To same(x.base, x.size);
    same.T = x.T;
    same.L = x.L;
    same.exp = x.exp;
    same.sign = x.sign;
    return same;
  }
};

}  // namespace orl
