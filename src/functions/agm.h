// The arithmetic-geometric mean: a' = (a + b) / 2, b' = sqrt(a b) until a and b agree.
//
// Precision  a result of precision p has a relative error of a few dozen W^-(p+1): every step adds a few, and
//            neither mean makes those of its operands larger.
// Steps      log2 of p words in bits, and log2(ln(a / b)) before them.
// Products   the product a b is made while b < a / 4. Then the squares A and B of a and b are kept, and a b comes from
//            them as 2 A' - (A + B) / 2, A' being the square of a': a square in place of a product. Before, the
//            difference would cost places (A. Schoenhage, A. Grotefeld, E. Vetter, "Fast Algorithms", 1994).
// End        with t bits from the top of a down to that of a - b, their arithmetic mean is the limit but for a factor
//            1 + 2^(-2t-2): AGM(a, b) = m (1 - (d/m)^2/16 - ...), m = (a + b)/2, d = a - b.
// Proof      each product and square by its hash, each root by its residual; they compare what the step before has
//            left with its hash, and sums, halves and differences carry theirs on. So is the result compared.
// Source     C. F. Gauss, "Bestimmung der Anziehung eines elliptischen Ringes", 1818. R. Brent, "Multiple-precision
//            zero-finding methods and the complexity of elementary function evaluation", 1976.
#pragma once

#include "functions/proved.h"

namespace orl {

/// AGM(a, b).
template <class Store>
class AGM2 {
 public:
  using Number = Store::Number;

  /// The numbers of an iteration, of p + 5 words each.
  struct Means {
    Number& a;
    u64 a_hash = 0;
    Number b;
    u64 b_hash = 0;
    Number a_square;
    u64 a_square_hash = 0;
    Number b_square;
    u64 b_square_hash = 0;
    u64 squares = 0;  ///< 1: they are those of a and b
    u64 agree = 0;    ///< 1: the next arithmetic mean is the last
  };

  /// A plan for p words.
  AGM2(u64 p, const Store::Budget& budget);

  u64 precision() const { return p_; }
  Need need() const { return need_; }
  /// out = AGM(a, b); zero where one of them is. Returns the hash of out's words. Throws InvalidParametersException
  /// "One of the inputs is negative.", AlgorithmFailedException as the steps do, with "Checksum Mismatch. Arithmetic
  /// mean failed." besides.
  u64 run(const RunContext& ctx, Store::Frame& frame, Number& out, const Hashed<Number>& a,
          const Hashed<Number>& b, Store::Arena arena) const;

  /// Numbers of an iteration whose first one is `a`.
  template <class AnyArena>
  Means cut(Number& a, AnyArena& arena) const {
    const auto number = [&](const char* name) { return Store::number(arena, p_ + 5, name); };
    return {
        .a = a, .b = number("orv_B.sf"), .a_square = number("orv_AA.sf"), .b_square = number("orv_BB.sf")};
  }
  /// What run() does once a and b are set: AGM(a, b) in means.a. Takes iteration_need().
  u64 iterate(const RunContext& ctx, Store::Frame& frame, Means& means, Store::Arena arena) const;
  /// a = (a + b) / 2 with the hash.
  void take_mean(const RunContext& ctx, Number& a, u64& a_hash, const Hashed<Number>& b,
                 Store::Arena arena) const;
  /// b = sqrt(product), and whether it agrees with a.
  void take_root(const RunContext& ctx, Store::Frame& frame, Means& means, const Hashed<Number>& product,
                 Store::Arena arena) const;
  /// Each of the three.
  Need iteration_need() const { return iteration_need_; }

 private:
  template <class AnyArena>
  Means lay_out(Number& a, AnyArena& arena) const;
  template <class AnyArena>
  Number cut_number(AnyArena& arena) const {
    return Store::number(arena, p_ + 5, "orv_S.sf");
  }
  /// A stage behind which all of `means` is alive.
  template <class Body>
  static void stage(Store::Frame& frame, Means& means, const Body& body) {
    frame.stage(body, means.a, means.a_hash, means.b, means.b_hash, means.a_square, means.a_square_hash,
                means.b_square, means.b_square_hash, means.squares, means.agree);
  }
  bool agree(const Means& means) const;
  static bool near(const Means& means);
  void take_square(const RunContext& ctx, Store::Frame& frame, Means& means, Store::Arena arena) const;
  void take_product(const RunContext& ctx, Store::Frame& frame, Means& means, Store::Arena arena) const;
  void take_product_from_squares(const RunContext& ctx, Store::Frame& frame, Means& means,
                                 Store::Arena arena) const;

  u64 p_;
  ProvedProduct<Store> product_;
  ProvedSqrtFloat<Store> root_;
  Need iteration_need_;
  Need need_;
};

/// AGM(1, x).
template <class Store>
class AGM1 {
 public:
  using Number = Store::Number;

  /// A plan for p words.
  AGM1(u64 p, const Store::Budget& budget);

  Need need() const { return need_; }
  /// out = AGM(1, x), else as AGM2::run. Throws InvalidParametersException "AGM of negative number.".
  u64 run(const RunContext& ctx, Store::Frame& frame, Number& out, const Hashed<Number>& x,
          Store::Arena arena) const;

 private:
  template <class AnyArena>
  AGM2<Store>::Means lay_out(Number& a, AnyArena& arena) const;

  AGM2<Store> means_;
  Need need_;
};

template <class W>
using AGM1_BigFloatR = AGM1<RamStore<W>>;
template <class W>
using AGM2_BigFloatR = AGM2<RamStore<W>>;

}  // namespace orl
