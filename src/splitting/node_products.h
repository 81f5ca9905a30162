// Products of a node's numbers: those of a few words on the stack, longer ones by transforms.
#pragma once

#include <algorithm>

#include "multiply/basecase.h"
#include "numbers/run_context.h"
#include "numbers/transform.h"

namespace orl {

/// Products of up to this many words are made by the basecase on the stack: 5120 bits, where transforms begin to pay.
template <class W>
inline constexpr u64 kDirectWords = 640 / sizeof(W);

/// a * b, of at most kDirectWords words, on the stack: `words` holds as many and one for the carry of a sum.
template <class W>
ExactFloat<W> direct_product(W* words, const ExactFloat<W>& a, const ExactFloat<W>& b) {
  constexpr u64 kScratchWords = 6 * kDirectWords<W>;
  ExactFloat<W> product(words, kDirectWords<W> + 1);
  if (a.L == 0 || b.L == 0) {
    product.set_zero();
    return product;
  }
  product.L = a.L + b.L;
  if (sizeof(W) == 4 && mul_scratch<W>(a.L, b.L) <= kScratchWords * sizeof(W)) {
    W scratch[kScratchWords];
    mul(words, a.T, a.L, b.T, b.L, scratch);
  } else {
    mulB(words, a.T, a.L, b.T, b.L);  // in 64-bit words a direct product stays below Karatsuba
  }
  product.L -= words[product.L - 1] == 0;
  product.exp = a.exp + b.exp;
  product.sign = a.sign == b.sign;
  product.hash = hash_mul(a.hash, b.hash);
  return product;
}

/// A product with a factor that another product has too.
template <class W>
struct SharedProduct {
  ExactFloat<W>& result;
  const ExactFloat<W>& factor;
};

/// Both products with a; either result may lie over operands, that of `second` last.
template <class W>
void product_pair(const RunContext& ctx, SharedProduct<W> first, SharedProduct<W> second,
                  const ExactFloat<W>& a, LinearHeapBuffer scratch) {
  using Transform = ExactFloatTransformR<W>;
  const TransformHelper<W> helper(ctx.multiply(scratch),
                                  a.L + std::max<u64>({first.factor.L, second.factor.L, 1}));
  Transform kept;
  Transform::mul_rr_xf(helper, first.result, first.factor, a, kept);
  Transform::mul_rf_xf(helper, second.result, second.factor, kept);
}

/// c = a * b, over operands or not.
template <class W>
void single_product(const RunContext& ctx, ExactFloat<W>& c, const ExactFloat<W>& a, const ExactFloat<W>& b,
                    LinearHeapBuffer scratch) {
  const TransformHelper<W> helper(ctx.multiply(scratch), std::max<u64>(a.L + b.L, 1));
  ExactFloatTransformR<W>::mul_rr_xx(helper, c, a, b);
}

}  // namespace orl
