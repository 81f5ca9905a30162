// The last product of a constant, x *= y to a precision of p words, from parts of half the length.
//
// For x = x1 W^h + x0 and y = y1 W^h + y0 the product needs x1 y1 whole, and only the upper halves of x1 y0
// and x0 y1; x0 y0 lies below the precision. So no product is longer than p plus a few words, in place of 2p:
// half the memory in transforms and half the tables, for eight transforms of that length in place of three of
// twice the length. One transform is kept; with two kept there would be seven, and a sixth more memory in
// all. Each partial product is made whole, since only a whole product has a hash that is known.
//
// Proof    the halves' hashes follow from the numbers' own, those of the products from the halves', and what
//          a sum cuts off is taken off its hash: one comparison at the end proves products, sums and that no
//          operand has changed.
#pragma once

#include "functions/proved.h"
#include "numbers/ram_store.h"

namespace orl {

template <class Store>
class FinalProduct;

/// In RAM.
template <class W>
class FinalProduct<RamStore<W>> {
 public:
  using Store = RamStore<W>;
  using Number = typename Store::Number;
  using Frame = typename Store::Frame;

  /// For results of p words; `caller` is who asks, as exceptions name him.
  FinalProduct(const char* caller, u64 p, const typename Store::Budget& budget);

  /// The heap of run(), the capacity that x must have, the longest partial product.
  Need need() const { return need_; }
  /// x *= y: the top p + 2 words or a few more, the lowest of them inexact; relative error below 8 W^-(p+1).
  /// Both are positive and normalised, and of p / 2 words at least, since sums end at the lowest word of x1 y1;
  /// `x_hash` is what x hashed to when it was proved. Returns the hash that x's words must have. Throws BufferTooSmallException "FinalProduct::run()"; AlgorithmFailedException
  /// "Checksum Mismatch. Multiplication Failed." when the words have not the hash that those of the operands
  /// give them.
  u64 run(const RunContext& ctx, Frame& frame, Number& x, u64 x_hash, const Hashed<Number>& y,
          LinearHeapBuffer heap) const;

 private:
  struct Buffers {
    Number cross;    ///< sum of the upper halves of x1 y0 and x0 y1, with a word for its carry
    Number product;  ///< a partial product
  };
  template <class Arena>
  Buffers cut(Arena& arena) const;

  const char* caller_;
  u64 p_;
  u64 tds_;
  u64 half_;           ///< words of a lower half
  u64 product_words_;  ///< of the longest partial product
  Need need_;
};

}  // namespace orl
