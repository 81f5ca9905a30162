// Newton iterations on floating big numbers: 1/sqrt(word), sqrt(a) and 1/sqrt(a), 1/a and A/B.
//
// Precision  n counts words; the level below n is (n + 1) >> 1, level 0 is a double. A result holds at most
//            n + 2 words and its relative error is a few W^-(n+1): newton.body.h shows it. A result never
//            rounds; it may lie on either side of the true value.
// Layers     The classes are plans: built once, immutable, they keep the transform of an operand that occurs
//            in two products. No product of a level of n words needs a shape of more than n + 12 words:
//            newton_level.h. Levels of a few words are made in one step: newton_small.h.
// Threads    Only the products fork; a plan may be shared, its arena belongs to one run.
// Stages     The level below, then the products of a level.
// Failures   "Convergence Failure" and kin (AlgorithmFailedException) mean that the machine has miscomputed.
#pragma once

#include <memory>

#include "core/types.h"
#include "functions/newton_level.h"
#include "numbers/ram_store.h"
#include "numbers/run_context.h"

namespace orl {

/// What the plans have in common: a level, and the plan of the level below it, which is null where the small
/// levels begin.
template <class Store, class Below>
class NewtonPlan {
 public:
  u64 precision() const { return p_; }
  Need need() const { return need_; }

 protected:
  NewtonPlan(u64 p, const Store::Budget& budget) : p_(p), budget_(budget) {}

  /// True for a level without a plan below it, whose need is then stated.
  bool plan_small(bool quotient = false);
  /// Plans the level below and states the need of both, the level's memory being what `layout` cuts.
  template <class Layout>
  void plan_level(const LevelShape& shape, const Layout& layout);
  /// Cuts the estimate that the level below makes.
  template <class AnyArena>
  Store::Number lay_out(AnyArena& arena) const;
  /// Cuts nothing that stays: the memory of the level below, then that of the level's products.
  template <class AnyArena>
  void leave_parts(AnyArena arena) const;

  /// The frame of a run of `function`, which must not have more tasks or less memory than planned.
  Store::Frame enter(const char* function, const RunContext& ctx, Store::Frame& frame,
                     const Store::Arena& arena) const;
  /// The stage of the level below: its function of `argument`, a word or a number.
  template <class Argument>
  void run_below(const RunContext& ctx, Store::Frame& frame, Store::Number& estimate,
                 const Argument& argument, Store::Arena arena) const;
  /// The stage of the level: takes the error that error_of(products) finds, or half of it, off the estimate.
  template <Correction share, class ErrorOf>
  void run_level(const RunContext& ctx, Store::Frame& frame, Store::Number& out,
                 const Store::Number& estimate, Store::Arena arena, const ErrorOf& error_of) const;

  u64 p_;
  Store::Budget budget_;
  Need need_;
  LevelShape shape_;
  std::unique_ptr<Below> below_;
};

/// 1/sqrt(w) of a word w.
template <class Store>
class InvsqrtWord : public NewtonPlan<Store, InvsqrtWord<Store>> {
 public:
  /// A plan for p words and at most budget.tds tasks.
  InvsqrtWord(u64 p, const Store::Budget& budget);

  /// out = 1/sqrt(w); out holds need().out_words words. Throws InvalidParametersException "tds is larger than
  /// plan.", BufferTooSmallException when `arena` is smaller than need().ram_bytes, ArithmeticException
  /// "Divide by zero." for w = 0, AlgorithmFailedException when an iteration does not converge.
  void run(const RunContext& ctx, Store::Frame& frame, Store::Number& out, Store::Word w,
           Store::Arena arena) const;
};

template <class Store>
class RootPair;

/// What roots of a number have in common: s = sqrt(a) and y = 1/sqrt(a) of the level below make a root of this one,
/// s + y (a - s^2) / 2 (A. Karp, P. Markstein, as at Division).
template <class Store>
class RootPlan : public NewtonPlan<Store, RootPair<Store>> {
 protected:
  using Number = Store::Number;
  using Products = LevelProducts<Number>;
  struct Estimates {
    Number root, inverse;
  };

  RootPlan(u64 p, const Store::Budget& budget);

  template <class AnyArena>
  Estimates lay_out(AnyArena& arena) const;
  void run_below(const RunContext& ctx, Store::Frame& frame, Estimates& estimates, const Number& a,
                 Store::Arena arena) const;
  /// The root of this level; keeps the transform of the inverse one below.
  void improve(const RunContext& ctx, Products& products, Number& root, const Estimates& estimates,
               const Number& a, const char* function) const;
};

/// sqrt(a) and 1/sqrt(a) of a positive number a, each from both of the level below.
template <class Store>
class RootPair : public RootPlan<Store> {
 public:
  using Number = Store::Number;

  /// Both results, of need().out_words words each.
  struct Roots {
    Number& root;
    Number& inverse;
  };

  /// A plan for p words and at most budget.tds tasks.
  RootPair(u64 p, const Store::Budget& budget);

  /// roots = sqrt(a), 1/sqrt(a), else as InvsqrtWord::run. `a` may be of any length; its top p + 2 words count.
  void run(const RunContext& ctx, Store::Frame& frame, const Roots& roots, const Number& a,
           Store::Arena arena) const;
};

/// sqrt(a) of a positive number a.
template <class Store>
class SqrtFloat : public RootPlan<Store> {
 public:
  /// A plan for p words and at most budget.tds tasks.
  SqrtFloat(u64 p, const Store::Budget& budget);

  /// out = sqrt(a), else as RootPair::run.
  void run(const RunContext& ctx, Store::Frame& frame, Store::Number& out, const Store::Number& a,
           Store::Arena arena) const;
};

/// 1/sqrt(a) of a positive number a.
template <class Store>
class InvsqrtFloat {
 public:
  /// A plan for p words and at most budget.tds tasks.
  InvsqrtFloat(u64 p, const Store::Budget& budget);

  Need need() const { return need_; }
  /// out = 1/sqrt(a), else as RootPair::run.
  void run(const RunContext& ctx, Store::Frame& frame, Store::Number& out, const Store::Number& a,
           Store::Arena arena) const;

 private:
  template <class AnyArena>
  Store::Number lay_out(AnyArena& arena) const;

  RootPair<Store> roots_;
  Need need_;
};

/// 1/a.
template <class Store>
class Reciprocal : public NewtonPlan<Store, Reciprocal<Store>> {
 public:
  /// A plan for p words and at most tds tasks.
  Reciprocal(u64 p, const Store::Budget& budget);

  /// out = 1/a, else as InvsqrtWord::run. `a` may be of any length; its top p + 2 words count.
  void run(const RunContext& ctx, Store::Frame& frame, Store::Number& out, const Store::Number& a,
           Store::Arena arena) const;
};

/// What a division may take.
enum class DivisionMemory {
  kKeep,   ///< the transform of the reciprocal is kept from its first product to its second, behind a stage:
           ///< for frames that resume nothing
  kLess,   ///< a fourth less memory, and one transform more than fourteen of this length
  kLeast,  ///< no transform is kept, and products are made in as little memory as they can
};

/// A / B by a reciprocal of half the precision, a quotient and one correction (A. Karp, P. Markstein,
/// "High-precision division and square root", ACM TOMS 23, 1997).
template <class Store>
class Division : public NewtonPlan<Store, Reciprocal<Store>> {
 public:
  /// A plan for p words and tds tasks.
  Division(u64 p, const Store::Budget& budget, DivisionMemory memory = DivisionMemory::kKeep);

  /// out = a / b; out holds need().out_words words. `a` may be zero, `b` not. Throws
  /// InvalidParametersException "Mismatching tds." unless ctx has the plan's tds; AlgorithmFailedException
  /// "Convergence Failure: ..." when a and b times the first quotient do not agree.
  void run(const RunContext& ctx, Store::Frame& frame, Store::Number& out, const Store::Number& a,
           const Store::Number& b, Store::Arena arena) const;

 private:
  struct Numbers {
    Store::Number reciprocal, quotient, difference;
  };
  template <class AnyArena>
  Numbers lay_out(AnyArena& arena) const;
  /// The correction of kLeast. `arena` is what lay_out left.
  template <class AnyArena>
  Store::Number lay_out_correction(AnyArena& arena) const;
  void run_least(const RunContext& ctx, Store::Frame& frame, Store::Number& out, const Store::Number& a,
                 const Store::Number& b, Store::Arena arena) const;

  DivisionMemory memory_;
};

template <class W>
using InvsqrtWord_BigFloatR = InvsqrtWord<RamStore<W>>;
template <class W>
using InvsqrtFloat_BigFloatR = InvsqrtFloat<RamStore<W>>;
template <class W>
using Reciprocal_BigFloatR = Reciprocal<RamStore<W>>;
template <class W>
using Division_BigFloatR = Division<RamStore<W>>;

}  // namespace orl
