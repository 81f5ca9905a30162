#include "outofcore/product_proof.h"

#include <cstring>

#include "core/exceptions.h"
#include "words/hash.h"

namespace orl {

std::optional<RingCheck> ring_check_of(const SwapPlan& plan) {
  if (plan.ring_words == 0) return std::nullopt;
  return RingCheck(plan.ring_words, plan.request.ring == ProductRing::kCyclic ? RingCheck::Ring::kMinusOne
                                                                              : RingCheck::Ring::kPlusOne);
}

ProductProof::ProductProof(const SwapPlan& plan, const char* function)
    : function_(function),
      square_(plan.request.square()),
      ring_words_(plan.ring_words),
      ring_(ring_check_of(plan)),
      product_(ring()) {}

void ProductProof::fail(const char* message) const { throw AlgorithmFailedException(function_, message); }

void ProductProof::end_read(u32 operand, const WordSums& read, const SwapNumber& number) {
  std::optional<WordSums>& known = operand_[operand];
  if ((number.hash() && *number.hash() != read.hash()) || (known && !(*known == read)))
    fail(kSwapNumberMismatch);
  known = read;
}

void ProductProof::add_carry(u64 at, const FarCarry& carry, ParallelContext parallel) {
  FarCarry magnitude = carry;
  const bool negative = carry.word[FarCarry::kWords - 1] >> 63;
  if (negative) magnitude.negate();
  u32 words[2 * FarCarry::kWords];
  std::memcpy(words, magnitude.word, sizeof words);
  const Words<u32> above{words, 2 * FarCarry::kWords};
  if (negative)
    product_.subtract(at, above, parallel);
  else
    product_.add(at, above, parallel);
}

bool ProductProof::is_product(u64 hash) const {
  return hash_canon(hash_mul(operand_[0]->hash(), operand_[square_ ? 0 : 1]->hash())) == hash;
}

void ProductProof::check(u64 product_hash) const {
  if (!is_product(product_hash)) fail(kSwapProductMismatch);
}

void ProductProof::check() const {
  const bool right = ring_ ? ring_->product(operand_[0]->residue(), operand_[square_ ? 0 : 1]->residue()) ==
                                 product_.residue()
                           : is_product(product_.hash());
  if (!right) fail(kSwapProductMismatch);
}

}  // namespace orl
