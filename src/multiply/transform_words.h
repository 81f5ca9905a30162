// Parameters' entries by word type, and middle products by wrapped ones.
//
// Words [skip, end) of a product whose end is at most its longer operand's length are a middle product: the
// words above `end` are not wanted, nor those below `skip`. A product modulo W^n - 1, or one that folds, is
// then long enough with n of P + (end - skip) words, P the shorter operand's, instead of both lengths: what
// is not wanted above falls on what is not wanted below.
#pragma once

#include <algorithm>

#include "multiply/algorithm_table.h"
#include "words/words.h"

namespace orl {

inline void forward_words(const Parameters& shape, void* F, const u32* A, u64 L, void* tmp,
                          ParallelContext parallel) {
  shape.forward(F, A, L, tmp, parallel);
}
inline void forward_words(const Parameters& shape, void* F, const u64* A, u64 L, void* tmp,
                          ParallelContext parallel) {
  shape.forward_w(F, A, L, tmp, parallel);
}
/// T[0, len - skip) = words [skip, len) of the product; F is destroyed, G kept.
inline void inverse_words(const Parameters& shape, void* F, const void* G, u32* T, u64 skip, u64 len,
                          void* tmp, ParallelContext parallel) {
  shape.inverse_fmul(F, G, T, skip, len, tmp, parallel);
}
inline void inverse_words(const Parameters& shape, void* F, const void* G, u64* T, u64 skip, u64 len,
                          void* tmp, ParallelContext parallel) {
  shape.inverse_fmul_w(F, G, T, skip, len, tmp, parallel);
}

/// How products of one kind are made.
enum class ProductForm : u8 {
  whole,   ///< the shape holds all words
  folded,  ///< what it does not hold falls on the lowest words
  cyclic   ///< modulo W^n - 1
};

template <class W>
class MiddleProduct {
 public:
  /// Words between what a folded product spoils and what is read.
  static constexpr u64 kGuardWords = 2;

  MiddleProduct() = default;
  /// Middle products of at most `window` words with an operand of `power` words.
  MiddleProduct(u64 power, u64 window) {
    constexpr u64 k = sizeof(W) / sizeof(u32);
    words_ = power + window + kGuardWords;
    ParametersBox box;
    const auto shape = [&]() -> const Parameters& {
      return basic_table<W>().parameters_for(box, nullptr, words_, 1);
    };
    if (shape().cyclic_words() >= k * words_) {
      form_ = ProductForm::cyclic;
    } else if (shape().folding_words() != 0) {
      words_ = std::max(words_, 2 * power);
      if (shape().folding_words() >= k * words_) form_ = ProductForm::folded;
    }
  }

  /// `whole` when no shape wraps at that length.
  ProductForm form() const { return form_; }
  /// What basic_table() is asked for.
  u64 words() const { return words_; }
  /// Bytes of run() beside transforms and scratch.
  static u64 result_bytes(ProductForm form, const Parameters& shape) {
    return form == ProductForm::cyclic ? LinearHeapBuffer::cut_bytes<u32>(shape.cyclic_words()) : 0;
  }

  static void forward(ProductForm form, const Parameters& shape, void* F, const W* A, u64 L, void* tmp,
                      ParallelContext parallel) {
    if (form != ProductForm::cyclic) return forward_words(shape, F, A, L, tmp, parallel);
    shape.forward_cyclic(F, reinterpret_cast<const u32*>(A), sizeof(W) / sizeof(u32) * L, tmp, parallel);
  }

  /// T[0, end - skip) = words [skip, end) of A * B, B of BL words being what G transforms, and 0 to 2 units
  /// of the lowest word less when the product is longer than the shape. `result` has result_bytes().
  static void run(ProductForm form, const Parameters& shape, void* F, const void* G, u64 BL, W* T, u64 skip,
                  u64 end, const W* A, u64 AL, W* result, void* tmp, ParallelContext parallel) {
    constexpr u64 k = sizeof(W) / sizeof(u32);
    forward(form, shape, F, A, AL, tmp, parallel);
    u64 length = shape.folding_words();
    if (form == ProductForm::cyclic) {
      length = shape.cyclic_words();
      shape.pointwise_cyclic(F, G, reinterpret_cast<u32*>(result), tmp, parallel);
      bp_copy(T, result + skip, end - skip, parallel);
    } else {
      inverse_words(shape, F, G, T, skip, end, tmp, parallel);
    }
    // A carry too many may have come from below, or one too few.
    if (form != ProductForm::whole && k * (AL + BL) > length) bp_carry<W>(-1, T, end - skip, parallel);
  }

 private:
  ProductForm form_ = ProductForm::whole;
  u64 words_ = 0;
};

}  // namespace orl
