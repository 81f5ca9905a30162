// Newton iterations on floating big numbers: 1/sqrt(word), 1/sqrt(a), 1/a and A/B.
//
// Precision  n counts words; the level below n is (n + 1) >> 1, level 0 is a double. A result holds at most n
// + 2
//            words and its relative error is a few W^-(n+1): newton.cpp shows it. A result never rounds; it
//            may lie on either side of the true value.
// Layers     functions with the suffix _E use plain products and small word buffers and serve the low levels
// (n <= 9);
//            the classes are plans: built once, immutable, they keep the transform of an operand that occurs
//            in two products. No product of a level of n words needs a shape of more than n + 12 words:
//            newton_level.h.
// Threads    only the products fork; a plan may be shared, its heap belongs to one run.
// Failures   "Convergence Failure" and kin (AlgorithmFailedException) mean that the machine has miscomputed.
#pragma once

#include <memory>

#include "core/types.h"
#include "functions/newton_level.h"
#include "memory/linear_buffer.h"
#include "numbers/big_float.h"
#include "numbers/ram_store.h"
#include "numbers/run_context.h"

namespace orl {

/// Words of the small buffer that the _E functions of `n` words cut from: both scratch numbers of every
/// level.
u64 newton_small_words(u64 n);

/// y = 1/sqrt(w) to n words; y holds n + 4 words. Throws ArithmeticException "Divide by zero." for w = 0,
/// AlgorithmFailedException when an iteration does not converge.
template <class W>
void InvsqrtWord_BigFloatR_E(const MultiplyContext& ctx, BigFloat<W>& y, W w, u64 n,
                             LinearWordBuffer<W> small);

/// y = 1/sqrt(a) to n words for a > 0; y holds n + 4 words. Failures as above.
template <class W>
void InvsqrtFloat_BigFloatR_E(const MultiplyContext& ctx, BigFloat<W>& y, const BigFloat<W>& a, u64 n,
                              LinearWordBuffer<W> small);

/// y = 1/a to n words, with the sign of a; y holds n + 4 words. Failures as above.
template <class W>
void Reciprocal_BigFloatR_E(const MultiplyContext& ctx, BigFloat<W>& y, const BigFloat<W>& a, u64 n,
                            LinearWordBuffer<W> small);

/// What the plans have in common: a level, and the plan of the level below it, null where the _E layer
/// begins.
template <class Below>
class NewtonPlan {
 public:
  u64 precision() const { return p_; }
  Need need() const { return need_; }

 protected:
  NewtonPlan(u64 p, u64 tds) : p_(p), tds_(tds) {}

  u64 p_;
  u64 tds_;
  Need need_;
  LevelShape shape_;
  std::unique_ptr<Below> below_;
};

/// 1/sqrt(w) of a word w.
template <class Store>
class InvsqrtWord : public NewtonPlan<InvsqrtWord<Store>> {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;
  using Frame = typename Store::Frame;

  /// A plan for p words and at most tds tasks.
  InvsqrtWord(u64 p, u64 tds);

  /// out = 1/sqrt(w); out holds need().out_words words. Throws InvalidParametersException "tds is larger than
  /// plan.", BufferTooSmallException when `heap` is smaller than need().ram_bytes, and the failures of the _E
  /// layer.
  void run(const RunContext& ctx, Frame& frame, Number& out, W w, Arena heap) const;
  void run(const RunContext& ctx, Number& out, W w, Arena heap) const;
};

/// 1/sqrt(a) of a positive number a.
template <class Store>
class InvsqrtFloat : public NewtonPlan<InvsqrtFloat<Store>> {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;
  using Frame = typename Store::Frame;

  InvsqrtFloat(u64 p, u64 tds);

  /// out = 1/sqrt(a), else as InvsqrtWord::run. `a` may be of any length; its top p + 2 words count.
  void run(const RunContext& ctx, Frame& frame, Number& out, const Number& a, Arena heap) const;
  void run(const RunContext& ctx, Number& out, const Number& a, Arena heap) const;
};

/// 1/a.
template <class Store>
class Reciprocal : public NewtonPlan<Reciprocal<Store>> {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;
  using Frame = typename Store::Frame;

  Reciprocal(u64 p, u64 tds);

  /// out = 1/a, else as InvsqrtWord::run. `a` may be of any length; its top p + 2 words count.
  void run(const RunContext& ctx, Frame& frame, Number& out, const Number& a, Arena heap) const;
  void run(const RunContext& ctx, Number& out, const Number& a, Arena heap) const;
};

/// What a division may take.
enum class DivisionMemory {
  kKeep,   ///< the transform of the reciprocal is kept from its first product to its second
  kLess,   ///< a fourth less memory, and one transform more than fourteen of this length
  kLeast,  ///< no transform is kept, and products are made in as little memory as they can
};

/// A / B by a reciprocal of half the precision, a quotient and one correction (A. Karp, P. Markstein,
/// "High-precision division and square root", ACM TOMS 23, 1997).
template <class Store>
class Division : public NewtonPlan<Reciprocal<Store>> {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;
  using Frame = typename Store::Frame;

  Division(u64 p, u64 tds, DivisionMemory memory = DivisionMemory::kKeep);

  /// out = a / b; out holds need().out_words words. `a` may be zero, `b` not. Throws
  /// InvalidParametersException "Mismatching tds." unless ctx has the plan's tds; AlgorithmFailedException
  /// "Convergence Failure: ..." when a and b times the first quotient do not agree.
  void run(const RunContext& ctx, Frame& frame, Number& out, const Number& a, const Number& b,
           Arena heap) const;
  void run(const RunContext& ctx, Number& out, const Number& a, const Number& b, Arena heap) const;

 private:
  void plan_least(u64 tds);
  void run_least(const RunContext& ctx, Frame& frame, Number& out, const Number& a, const Number& b,
                 Arena heap) const;

  bool least_;
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
