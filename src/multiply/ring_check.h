// The proof of a wrapped product: operands and result, folded modulo a small divisor of the ring.
//
// W^m - 1 divides W^n - 1 where m divides n, and W^m + 1 divides W^n + 1 where n / m is odd; so what holds
// modulo the ring must hold modulo the divisor, which takes one sweep over each number. The hash modulo
// 2^61 - 1 cannot do this: W^n is 1 modulo it for few n only.
//
// Divisor   m is a power of two of at most kWords 32-bit words, as large as n allows. A random fault passes
//           with a chance of 2^-32m. Opposite faults m words apart cancel modulo W^m - 1, as do words that
//           change places at such a distance.
#pragma once

#include <array>

#include "core/types.h"
#include "threads/parallelizer.h"

namespace orl {

/// One product's check, from its operands to its result.
class RingCheck {
 public:
  /// Modulo W^n - 1, modulo W^n + 1.
  enum class Ring { kMinusOne, kPlusOne };
  static constexpr u64 kWords = 16;
  /// A number modulo the divisor, reduced: words below 2^32, and a word that is 1 for W^m modulo W^m + 1 alone.
  using Residue = std::array<u32, kWords + 1>;

  /// For products modulo W^n - 1 or W^n + 1, W = 2^32.
  explicit RingCheck(u64 n, Ring ring = Ring::kMinusOne);

  /// Words of the divisor; 0 when no small one divides W^n + 1: nothing is checked then.
  u64 words() const { return m_; }

  /// Starts with the operand A[0, L), of any length.
  void take(const u32* A, u64 L, ParallelContext parallel);
  /// Multiplies what was taken by B[0, L), or by itself.
  void multiply(const u32* B, u64 L, ParallelContext parallel);
  void square();
  /// Throws AlgorithmFailedException `function`, "Checksum Mismatch. Multiplication Failed." unless P[0, n),
  /// W^n more with `top`, is the product.
  void compare(const u32* P, bool top, const char* function, ParallelContext parallel) const;

  /// For numbers that come in pieces: sum += W^at A[0, L); sum -= W^at A[0, L); the product of two.
  void add(Residue& sum, u64 at, const u32* A, u64 L, ParallelContext parallel) const;
  void subtract(Residue& sum, u64 at, const u32* A, u64 L, ParallelContext parallel) const;
  Residue product(const Residue& a, const Residue& b) const;

 private:
  using Columns = std::array<s64, kWords>;

  Columns sums(const u32* A, u64 L) const;
  Residue residue(const u32* A, u64 L, ParallelContext parallel) const;
  Residue reduced(Columns columns) const;
  Columns columns_of(const Residue& words) const;
  void add_shifted(Residue& sum, u64 at, const Residue& more, s64 factor) const;
  s64 sign() const { return ring_ == Ring::kMinusOne ? 1 : -1; }

  u64 n_;
  Ring ring_;
  u64 m_;
  Residue value_{};
};

}  // namespace orl
