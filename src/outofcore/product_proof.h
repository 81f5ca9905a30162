// The proof of a product of numbers on disks, made of what streams past anyway.
//
// A plain product is proved modulo 2^61 - 1, one modulo W^n -+ 1 modulo a small divisor of that (multiply/ring_check.h).
// The residues of the operands are taken from each full read and must agree with what the number says of itself and with
// the read before; that of the product from the words that the transforms have given, before anybody stores them. So a
// bit that changes in an operand's file, in a file of residues or in memory ends the product.
//
// W^n + 1 has no small divisor of that kind where n is a large power of two times a small number, as shapes of these
// products have it: there the bound of coefficients is all, and whoever makes more of the product proves that.
#pragma once

#include <optional>

#include "multiply/ring_check.h"
#include "outofcore/swap_number.h"
#include "outofcore/swap_plan.h"

namespace orl {

/// What a product in the plan's ring is proved by; none outside a ring.
std::optional<RingCheck> ring_check_of(const SwapPlan& plan);

/// See the head of this file.
class ProductProof : Uncopied {
 public:
  /// For the product that is planned; `function` is the name under which it fails.
  ProductProof(const SwapPlan& plan, const char* function);

  const char* function() const { return function_; }
  /// What a reader of an operand adds up besides the hash; null outside a ring.
  const RingCheck* ring() const { return ring_ ? &*ring_ : nullptr; }
  /// Operand 0 or 1, `number`, has been read whole. Throws AlgorithmFailedException when the words are not those of
  /// `number`, or not those of an earlier read.
  void end_read(u32 operand, const WordSums& read, const SwapNumber& number);
  /// What end_read() was told of an operand last, without what belongs to a ring.
  WordSums read(u32 operand) const { return operand_[operand]->plain(); }

  /// Words [at, at + P.count) of the product as the transforms gave them.
  void add_product(u64 at, Words<u32> P, ParallelContext parallel) { product_.add(at, P, parallel); }
  /// What a product in a ring has above its n words.
  void add_above(const FarCarry& carry, ParallelContext parallel) { add_carry(ring_words_, carry, parallel); }
  /// What is to be added to the product's words from `at` on.
  void add_carry(u64 at, const FarCarry& carry, ParallelContext parallel);
  /// Throws AlgorithmFailedException "Checksum Mismatch. Multiplication Failed." unless the words are the product's.
  void check() const;
  /// check() for a plain product whose words have this hash, canonical, and were not given to add_product().
  void check(u64 product_hash) const;

 private:
  bool is_product(u64 hash) const;
  [[noreturn]] void fail(const char* message) const;

  const char* function_;
  bool square_;
  u64 ring_words_;
  std::optional<RingCheck> ring_;
  std::optional<WordSums> operand_[2];
  WordSums product_;
};

}  // namespace orl
