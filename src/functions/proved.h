// Products, quotients and roots that end only when they are proved. Each is a plan as those of newton.h, in
// the same memory or a little more.
//
// Hashes   run() returns the hash of its result, canonical, taken before the residual read the words. Who
//          compares the words with it later proves that they are still those. Operands come with the hash
//          that their maker proved, so a change between two operations is found by the second one.
// Stages   Those of the operation, and its proof.
#pragma once

#include "functions/newton.h"
#include "functions/residual.h"

namespace orl {

/// A number, and the hash that its words must have.
template <class Number>
struct Hashed {
  const Number& number;
  u64 hash;
};

/// a * b, the top p + 2 words of it.
template <class Store>
class ProvedProduct {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;
  using Frame = typename Store::Frame;
  using Budget = typename Store::Budget;

  /// For operands of at most p + 2 words each.
  ProvedProduct(u64 p, const Budget& budget);

  Need need() const { return need_; }
  /// out = a * b; `a` and `b` may be one number, which is squared. The whole product is made and its hash
  /// compared with the product of the operands' hashes. Throws InvalidParametersException for longer
  /// operands, AlgorithmFailedException "Checksum Mismatch. Multiplication Failed.".
  u64 run(const RunContext& ctx, Frame& frame, Number& out, const Hashed<Number>& a, const Hashed<Number>& b,
          Arena arena) const;

 private:
  template <class AnyArena>
  typename Store::Exact lay_out(AnyArena& arena) const;

  u64 p_;
  Budget budget_;
  Need need_;
};

/// 1/sqrt(w) of a word w.
template <class Store>
class ProvedInvsqrtWord {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;
  using Frame = typename Store::Frame;
  using Budget = typename Store::Budget;

  /// A plan for p words and `tds` tasks.
  ProvedInvsqrtWord(u64 p, const Budget& budget);

  Need need() const { return need_; }
  /// As InvsqrtWord::run, and check_inverse_root of what it gave.
  u64 run(const RunContext& ctx, Frame& frame, Number& out, W w, Arena arena) const;

 private:
  InvsqrtWord<Store> root_;
  Residual<Store> residual_;
  Need need_;
};

/// sqrt(a) and 1/sqrt(a) of a positive number a: y = 1/sqrt(a) by Newton's iteration, b = a y. That b^2 is a
/// proves b; that b y is 1 besides proves y.
template <class Store>
class ProvedSqrtFloat {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;
  using Frame = typename Store::Frame;
  using Budget = typename Store::Budget;

  /// A plan for p words.
  ProvedSqrtFloat(u64 p, const Budget& budget);

  Need need() const { return need_; }
  /// root = sqrt(a) to p words, of need().out_words words. Throws as InvsqrtFloat::run,
  /// AlgorithmFailedException "Residual is too large. Square root failed." and "Checksum Mismatch. Square
  /// root failed." when `a` has not its hash.
  u64 run(const RunContext& ctx, Frame& frame, Number& root, const Hashed<Number>& a, Arena arena) const;

 private:
  template <class AnyArena>
  Number lay_out(AnyArena& arena) const;

  InvsqrtFloat<Store> inverse_;
  Residual<Store> square_;
  Budget budget_;
  Need need_;
};

/// 1/sqrt(a) of a positive number a, proved as ProvedSqrtFloat says.
template <class Store>
class ProvedInvsqrtFloat {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;
  using Frame = typename Store::Frame;
  using Budget = typename Store::Budget;

  /// A plan for p words.
  ProvedInvsqrtFloat(u64 p, const Budget& budget);

  Need need() const { return need_; }
  /// out = 1/sqrt(a) to p words, else as ProvedSqrtFloat::run; "... Inverse root failed." besides.
  u64 run(const RunContext& ctx, Frame& frame, Number& out, const Hashed<Number>& a, Arena arena) const;

 private:
  template <class AnyArena>
  Number lay_out(AnyArena& arena) const;

  InvsqrtFloat<Store> inverse_;
  Residual<Store> square_;
  Residual<Store> product_;
  Budget budget_;
  Need need_;
};

/// A / B.
template <class Store>
class ProvedDivision {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;
  using Frame = typename Store::Frame;
  using Budget = typename Store::Budget;

  /// `memory` as Division has it.
  ProvedDivision(u64 p, const Budget& budget, DivisionMemory memory = DivisionMemory::kKeep);

  Need need() const { return need_; }
  /// As Division::run for a that is not zero, and check_quotient of what it gave. Throws
  /// AlgorithmFailedException "Checksum Mismatch. Division failed." when an operand has not its hash at the
  /// end.
  u64 run(const RunContext& ctx, Frame& frame, Number& out, const Hashed<Number>& a, const Hashed<Number>& b,
          Arena arena) const;

 private:
  Division<Store> division_;
  Residual<Store> residual_;
  Need need_;
};

}  // namespace orl
