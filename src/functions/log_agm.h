// The natural logarithm of a number by the arithmetic-geometric mean.
//
//   ln x = m W ln 2 - Pi / (2 AGM(1, k)),  k = 4 x W^-m
//
// which is 4 / s with s = W^m / x; the error of Pi / (2 AGM(1, 4/s)) - ln s is (4 / s^2)(ln s - 1) + O(ln s / s^4).
//
// Precision  the relative error of a result is below W^-p. With c = -log2|x - 1| for x near 1, else 0, log2(ln s) + c
//            bits of the difference cancel. The steps keep two words more of 64 bits or three of 32, which is enough
//            for c < 16 and ln s < 2^41, and `near_one_words` more. s is W^(p/2 + 1) at least, and
//            W^(near_one_words / 2) more.
// Source     E. Salamin, in M. Beeler, R. Gosper, R. Schroeppel, "HAKMEM", 1972, item 143. J. and P. Borwein, "Pi and
//            the AGM", 1987.
#pragma once

#include "functions/agm.h"

namespace orl {

/// What a logarithm by AGM takes besides its argument, each to Log_AGM::operand_words() words.
template <class Number>
struct LogOperands {
  Hashed<Number> pi;
  Hashed<Number> log2;
};

/// What the last difference is taken of.
template <class Number>
struct LogParts {
  Hashed<Number> log2;
  s64 shift;  ///< m
  Hashed<Number> quotient;
};

/// Log(x) with Pi and Log(2) given.
template <class Store>
class Log_AGM {
 public:
  using Number = Store::Number;

  /// A plan for p words, and for numbers that near_one_words(x) is at most this for.
  Log_AGM(u64 p, const Store::Budget& budget, u64 near_one_words = 0);

  /// The words by which x is so near to 1 that its logarithm needs more of them; 0 for x = 1.
  static u64 near_one_words(const Number& x);

  Need need() const { return need_; }
  /// Precision in words of Pi and Log(2).
  u64 operand_words() const { return p_; }
  /// out = Log(x), and zero for x = 1 before anything is computed. Returns the hash of out's words. Throws
  /// InvalidParametersException "Log(0) is negative infinity.", "Log of a negative number is complex." and "The
  /// argument is nearer to 1 than planned."; AlgorithmFailedException as the steps do.
  u64 run(const RunContext& ctx, Store::Frame& frame, Number& out, const Hashed<Number>& x,
          const LogOperands<Number>& operands, Store::Arena arena) const;

  // The steps of run(), for who makes Pi and Log(2) between them, and what they take --------------------------

  /// True for a number whose logarithm is zero; throws as run() does.
  bool is_trivial(const Number& x) const;
  /// g = 2 AGM(1, 4 x W^-m) of operand_words() + 5 words.
  u64 double_mean(const RunContext& ctx, Store::Frame& frame, Number& g, const Hashed<Number>& x,
                  Store::Arena arena) const;
  /// quotient = Pi / g of operand_words() + 4 words.
  u64 divide(const RunContext& ctx, Store::Frame& frame, Number& quotient, const Hashed<Number>& pi,
             const Hashed<Number>& g, Store::Arena arena) const;
  /// out = m W log2 - quotient.
  u64 finish(const RunContext& ctx, Store::Frame& frame, Number& out, const LogParts<Number>& parts,
             Store::Arena arena) const;
  /// m.
  s64 shift(const Number& x) const;
  Need mean_need() const;
  Need division_need() const { return division_.need(); }
  Need finish_need() const;
  u64 out_words() const { return p_ + 7; }

 private:
  template <class AnyArena>
  Number lay_out(AnyArena& arena) const;

  u64 result_p_;
  u64 near_one_;
  u64 p_;  ///< of the steps
  AGM1<Store> mean_;
  ProvedDivision<Store> division_;
  Need need_;
};

template <class W>
using Log_AGM_BigFloatR = Log_AGM<RamStore<W>>;

}  // namespace orl
