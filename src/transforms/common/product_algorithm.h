// What the families have in common that take both operands of a product down together.
#pragma once

#include "multiply/algorithm.h"

namespace orl {

/// Every window form in terms of one: a product, or a square when B has no words.
class ProductAlgorithm : public Algorithm {
 public:
  void sqr_window(const MultiplyContext& ctx, Window<u32> T, Words<u32> A) const final {
    product(ctx, T, A, {});
  }
  void mul_window(const MultiplyContext& ctx, Window<u32> T, Words<u32> A, Words<u32> B) const final {
    product(ctx, T, A, B);
  }

 protected:
  using Algorithm::Algorithm;

 private:
  virtual void product(const MultiplyContext& ctx, Window<u32> T, Words<u32> A, Words<u32> B) const = 0;
};

}  // namespace orl
