// The squares and products of a power, on numbers in RAM: each is made whole and proved by its hash.
#pragma once

#include "functions/proved.h"
#include "numbers/exact_float.h"
#include "numbers/run_context.h"
#include "numbers/transform.h"

namespace orl {

template <class Number>
class PowerLadder;

template <class W>
class PowerLadder<BigFloat<W>> {
 public:
  using Number = BigFloat<W>;

  /// What a ladder of steps of p + 2 words cuts: the whole product, and transforms. `by_x`: some step multiplies by x.
  template <class Arena>
  static ExactFloat<W> lay_out(u64 p, bool by_x, u64 tds, Arena& arena) {
    const u64 words = 2 * (p + kBigFloatExtraPrecision);
    const ExactFloat<W> whole(arena.template cut<W>(words), words);
    arena.leave(Need{.ram_bytes = TransformHelper<W>::bytes(words, tds, kept(by_x)),
                     .table_bits = words * 8 * sizeof(W)});
    return whole;
  }

  /// `heap` holds what lay_out takes. `x` has p + 2 words at most, and outlives this.
  PowerLadder(const RunContext& ctx, u64 p, bool by_x, const Hashed<Number>& x, LinearHeapBuffer heap);

  /// r = r^2 and r = r x, the top p + 2 words. Throws AlgorithmFailedException "Checksum Mismatch. Multiplication
  /// Failed.".
  void square(Number& r, u64& hash);
  void multiply(Number& r, u64& hash);

 private:
  static u64 kept(bool by_x) { return by_x ? 2 : 1; }
  void take(Number& r, u64& hash);

  const RunContext& ctx_;
  u64 p_;
  Hashed<Number> x_;
  ExactFloat<W> whole_;
  TransformHelper<W> helper_;
  ExactFloatTransformR<W> square_, by_x_;
};

}  // namespace orl
