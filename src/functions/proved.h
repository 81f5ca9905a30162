// Products, quotients and roots that end only when they are proved. Each is a plan as those of newton.h, in
// the same memory or a little more.
//
// Hashes   run() returns the hash of its result, canonical, taken before the residual read the words. Who
//          compares the words with it later proves that they are still those. Operands come with the hash
//          that their maker proved, so a change between two operations is found by the second one.
// Stages   Those of the operation, and its proof.
#pragma once

#include "core/exceptions.h"
#include "functions/newton.h"
#include "functions/residual.h"
#include "words/hash.h"

namespace orl {

/// The canonical hash of a number's words as they stand.
template <class Number>
u64 hash_of(const Number& x, ParallelContext parallel) {
  return hash_canon(x.computed_hash(parallel));
}

/// A number, and the hash that its words must have.
template <class Number>
struct Hashed {
  const Number& number;
  u64 hash;
};

/// What is said of a product.
inline constexpr const char* kProductMismatch = "Checksum Mismatch. Multiplication Failed.";

/// Throws AlgorithmFailedException `function`, `message` unless the words of x have its hash.
template <class Number>
void require_hash(const Hashed<Number>& x, const char* function, const char* message,
                  ParallelContext parallel) {
  if (hash_of(x.number, parallel) != hash_canon(x.hash)) throw AlgorithmFailedException(function, message);
}

/// a * b, the top p + 2 words of it.
template <class Store>
class ProvedProduct {
 public:
  /// For operands of at most p + 2 words each.
  ProvedProduct(u64 p, const Store::Budget& budget);

  Need need() const { return need_; }
  /// out = a * b; `a` and `b` may be one number, which is squared. The whole product is made and its hash
  /// compared with the product of the operands' hashes. Throws InvalidParametersException for longer
  /// operands, AlgorithmFailedException "Checksum Mismatch. Multiplication Failed.".
  u64 run(const RunContext& ctx, Store::Frame& frame, Store::Number& out,
          const Hashed<typename Store::Number>& a, const Hashed<typename Store::Number>& b,
          Store::Arena arena) const;

 private:
  template <class AnyArena>
  Store::Exact lay_out(AnyArena& arena) const;

  u64 p_;
  Store::Budget budget_;
  Need need_;
};

/// 1/sqrt(w) of a word w.
template <class Store>
class ProvedInvsqrtWord {
 public:
  /// A plan for p words and `tds` tasks.
  ProvedInvsqrtWord(u64 p, const Store::Budget& budget);

  Need need() const { return need_; }
  /// As InvsqrtWord::run, and check_inverse_root of what it gave.
  u64 run(const RunContext& ctx, Store::Frame& frame, Store::Number& out, Store::Word w,
          Store::Arena arena) const;

 private:
  InvsqrtWord<Store> root_;
  Residual<typename Store::Number> residual_;
  Need need_;
};

/// sqrt(a) of a positive number a, proved by its square.
template <class Store>
class ProvedSqrtFloat {
 public:
  /// A plan for p words.
  ProvedSqrtFloat(u64 p, const Store::Budget& budget);

  Need need() const { return need_; }
  /// root = sqrt(a) to p words, of need().out_words words. Throws as SqrtFloat::run,
  /// AlgorithmFailedException "Residual is too large. Square root failed." and "Checksum Mismatch. Square
  /// root failed." when `a` has not its hash.
  u64 run(const RunContext& ctx, Store::Frame& frame, Store::Number& root,
          const Hashed<typename Store::Number>& a, Store::Arena arena) const;

 private:
  SqrtFloat<Store> root_;
  Residual<typename Store::Number> square_;
  Need need_;
};

/// 1/sqrt(a) of a positive number a: the square of b = sqrt(a) proves b, and b / sqrt(a) = 1 its inverse.
template <class Store>
class ProvedInvsqrtFloat {
 public:
  /// A plan for p words.
  ProvedInvsqrtFloat(u64 p, const Store::Budget& budget);

  Need need() const { return need_; }
  /// out = 1/sqrt(a) to p words, else as ProvedSqrtFloat::run; "... Inverse root failed." besides.
  u64 run(const RunContext& ctx, Store::Frame& frame, Store::Number& out,
          const Hashed<typename Store::Number>& a, Store::Arena arena) const;

 private:
  template <class AnyArena>
  Store::Number lay_out(AnyArena& arena) const;

  RootPair<Store> roots_;
  Residual<typename Store::Number> square_, product_;
  Need need_;
};

/// A / B.
template <class Store>
class ProvedDivision {
 public:
  /// `memory` as Division has it.
  ProvedDivision(u64 p, const Store::Budget& budget, DivisionMemory memory = DivisionMemory::kKeep);

  Need need() const { return need_; }
  /// As Division::run for a that is not zero, and check_quotient of what it gave. Throws
  /// AlgorithmFailedException "Checksum Mismatch. Division failed." when an operand has not its hash at the
  /// end.
  u64 run(const RunContext& ctx, Store::Frame& frame, Store::Number& out,
          const Hashed<typename Store::Number>& a, const Hashed<typename Store::Number>& b,
          Store::Arena arena) const;

 private:
  Division<Store> division_;
  Residual<typename Store::Number> residual_;
  Need need_;
};

}  // namespace orl
