// What the families have in common that take both operands of a product down together.
#pragma once

#include "multiply/algorithm.h"

namespace orl {

/// Every window form in terms of one: a product of u32 words, or a square when B is null.
class ProductAlgorithm : public Algorithm {
 public:
  void sqr_window(const MultiplyContext& ctx, u32* T, u64 skip, u64 len, const u32* A, u64 L) const final {
    product(ctx, T, skip, len, A, L, nullptr, L);
  }
  void sqr_window(const MultiplyContext& ctx, u64* T, u64 skip, u64 len, const u64* A, u64 L) const final {
    product(ctx, reinterpret_cast<u32*>(T), 2 * skip, 2 * len, reinterpret_cast<const u32*>(A), 2 * L,
            nullptr, 2 * L);
  }
  void mul_window(const MultiplyContext& ctx, u32* T, u64 skip, u64 len, const u32* A, u64 AL, const u32* B,
                  u64 BL) const final {
    product(ctx, T, skip, len, A, AL, B, BL);
  }
  void mul_window(const MultiplyContext& ctx, u64* T, u64 skip, u64 len, const u64* A, u64 AL, const u64* B,
                  u64 BL) const final {
    product(ctx, reinterpret_cast<u32*>(T), 2 * skip, 2 * len, reinterpret_cast<const u32*>(A), 2 * AL,
            reinterpret_cast<const u32*>(B), 2 * BL);
  }

 protected:
  using Algorithm::Algorithm;

 private:
  virtual void product(const MultiplyContext& ctx, u32* T, u64 skip, u64 len, const u32* A, u64 AL,
                       const u32* B, u64 BL) const = 0;
};

}  // namespace orl
