// The inner step of ProvedProduct in RAM.
#pragma once

#include "core/fault_point.h"
#include "functions/proved.h"
#include "numbers/big_float.h"
#include "numbers/exact_float.h"
#include "numbers/run_context.h"
#include "words/hash.h"

namespace orl {

/// The number as an exact one with its hash, on the same words.
template <class W>
ExactFloat<W> as_exact(const Hashed<BigFloat<W>>& a) {
  ExactFloat<W> view(a.number.T, a.number.L);
  view.L = a.number.L;
  view.exp = a.number.exp;
  view.sign = a.number.sign;
  view.hash = a.hash;
  return view;
}

/// c = a * b, with the hash that follows from theirs.
template <class W>
void multiply_hashed(ExactFloat<W>& c, const Hashed<BigFloat<W>>& a, const Hashed<BigFloat<W>>& b,
                     const MultiplyContext& ctx) {
  if (&a.number == &b.number)
    c.set_sqr(as_exact(a), ctx);
  else
    c.set_mul(as_exact(a), as_exact(b), ctx);
  fault_point("proved product", c.T, c.L * sizeof(W));
}

/// out = the top p + 2 words of c. Returns their hash: that of c less the hash of the words that are left out.
/// Throws AlgorithmFailedException "Checksum Mismatch. Multiplication Failed." when c has not its hash.
template <class W>
u64 take_window(BigFloat<W>& out, u64 p, const ExactFloat<W>& c, const char* function,
                const RunContext& ctx) {
  BigFloat<W> below(c.T, c.L);
  below.L = c.L;
  below.exp = c.exp;
  below.sign = c.sign;
  out.set_BigFloat(p, below, ctx.parallel);
  below.L -= out.L;
  const u64 hash = out.computed_hash(ctx.parallel);
  if (hash_canon(hash_add(hash, below.computed_hash(ctx.parallel))) != hash_canon(c.hash))
    throw AlgorithmFailedException(function, kProductMismatch);
  return hash_canon(hash);
}

}  // namespace orl
