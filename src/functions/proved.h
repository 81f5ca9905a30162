// Divisions and inverse roots that end only when they are proved (residual.h). Each is a plan as those of
// newton.h, in the same memory or a little more.
#pragma once

#include "functions/newton.h"
#include "functions/residual.h"

namespace orl {

/// 1/sqrt(w) of a word w.
template <class Store>
class ProvedInvsqrtWord {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;

  ProvedInvsqrtWord(u64 p, u64 tds);

  Need need() const { return need_; }
  /// As InvsqrtWord::run, and Residual::check_inverse_root of what it gave. Returns the hash of out, which was taken
  /// before the residual read the words: who compares them with it proves that they are still those.
  u64 run(const RunContext& ctx, Number& out, W w, Arena heap) const;

 private:
  InvsqrtWord<Store> root_;
  Residual<W> residual_;
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

  /// `memory` as Division has it.
  ProvedDivision(u64 p, u64 tds, DivisionMemory memory = DivisionMemory::kKeep);

  Need need() const { return need_; }
  /// As Division::run for a that is not zero, and Residual::check_quotient of what it gave. Throws
  /// AlgorithmFailedException "Checksum Mismatch. Division failed." when an operand has changed meanwhile.
  /// Returns the hash of out, taken
  /// before the residual read its words.
  u64 run(const RunContext& ctx, Frame& frame, Number& out, const Number& a, const Number& b,
          Arena heap) const;

 private:
  Division<Store> division_;
  Residual<W> residual_;
  Need need_;
};

}  // namespace orl
