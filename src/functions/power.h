// Powers of a number with a whole exponent: squares from the top bit of the exponent down, and a product by x where a
// bit is set. The transform of x is made once.
//
// Precision  the relative error is below W^-p for any exponent: it grows as the exponent, so the steps keep as many
//            bits more as an exponent may have.
// Proof      every product is made whole and has the hash that follows from those of its operands.
#pragma once

#include <bit>

#include "functions/power_ladder.h"
#include "functions/proved.h"

namespace orl {

/// x^e for a fixed e >= 0.
template <class Store>
class Power_uL {
 public:
  using Number = Store::Number;

  /// A plan for p words.
  Power_uL(u64 p, u64 exponent, const Store::Budget& budget);

  Need need() const { return need_; }
  /// out = x^e; 1 for e = 0, x itself for e = 1. Returns the hash of out's words. Throws BufferTooSmallException
  /// "Power_uL_BigFloatR()", AlgorithmFailedException "Checksum Mismatch. Multiplication Failed.".
  u64 run(const RunContext& ctx, Store::Frame& frame, Number& out, const Hashed<Number>& x,
          Store::Arena arena) const;

 private:
  using Ladder = PowerLadder<Number>;
  bool by_x() const { return !std::has_single_bit(exponent_); }

  u64 p_;        ///< of the result
  u64 steps_p_;  ///< of the steps
  u64 exponent_;
  Need need_;
};

/// x^e for a fixed e of any sign.
template <class Store>
class Power_nL {
 public:
  using Number = Store::Number;

  /// A plan for p words.
  Power_nL(u64 p, s64 exponent, const Store::Budget& budget);

  Need need() const { return need_; }
  /// As Power_uL::run, and the inverse of that for e < 0. Throws ArithmeticException "Divide by zero." for x = 0
  /// then.
  u64 run(const RunContext& ctx, Store::Frame& frame, Number& out, const Hashed<Number>& x,
          Store::Arena arena) const;

 private:
  template <class AnyArena>
  Number lay_out(AnyArena& arena) const;

  bool inverse_;
  Power_uL<Store> power_;
  ProvedDivision<Store> division_;
  Need need_;
};

template <class W>
using Power_uL_BigFloatR = Power_uL<RamStore<W>>;
template <class W>
using Power_nL_BigFloatR = Power_nL<RamStore<W>>;

}  // namespace orl
