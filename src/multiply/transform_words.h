// Middle products by wrapped ones.
//
// Words [skip, end) of a product whose end is at most its longer operand's length are a middle product: the
// words above `end` are not wanted, nor those below `skip`. A product modulo W^n - 1, or one that folds, is
// then long enough with n of P + (end - skip) words, P the shorter operand's, instead of both lengths: what
// is not wanted above falls on what is not wanted below.
//
// Source   G. Hanrot, M. Quercia, P. Zimmermann, "The middle product algorithm I", AAECC 14 (2004).
#pragma once

#include <algorithm>

#include "multiply/algorithm_table.h"
#include "words/words.h"

namespace orl {

/// How products of one kind are made.
enum class ProductForm : u8 {
  whole,   ///< the shape holds all words
  folded,  ///< what it does not hold falls on the lowest words
  cyclic   ///< modulo W^n - 1
};

/// A shape, and how middle products are made by it.
template <class W>
struct MiddleShape {
  ProductForm form;
  const Parameters& shape;

  /// Bytes of run() beside transforms and scratch.
  u64 result_bytes() const {
    return form == ProductForm::cyclic ? LinearHeapBuffer::cut_bytes<u32>(shape.cyclic_words()) : 0;
  }

  /// F = the transform of A for products of this form.
  void forward(void* F, Words<W> A, void* tmp, ParallelContext parallel) const {
    if (form == ProductForm::cyclic)
      shape.wrapped()->forward_cyclic(F, A, tmp, parallel);
    else
      shape.forward(F, A, tmp, parallel);
  }

  /// T = its words of A * B, B of B_count words being what areas.G transforms and keeps, and 0 to 2 units of
  /// the lowest word less when the product is longer than the shape. `result` has result_bytes().
  void run(const TransformAreas& areas, u64 B_count, Window<W> T, Words<W> A, W* result,
           ParallelContext parallel) const {
    constexpr u64 k = sizeof(W) / sizeof(u32);
    forward(areas.F, A, areas.tmp, parallel);
    u64 length = shape.folding_words();
    if (form == ProductForm::cyclic) {
      length = shape.cyclic_words();
      shape.wrapped()->pointwise_cyclic(areas.F, areas.G, reinterpret_cast<u32*>(result), areas.tmp,
                                        parallel);
      bp_copy(T.T, result + T.skip, T.count(), parallel);
    } else {
      shape.inverse_fmul(areas.F, areas.G, T, areas.tmp, parallel);
    }
    // A carry too many may have come from below, or one too few.
    if (form != ProductForm::whole && k * (A.count + B_count) > length)
      bp_carry<W>(-1, T.T, T.count(), parallel);
  }
};

/// The length and the form of middle products with one kept transform that a plan chooses.
template <class W>
class MiddleProduct {
 public:
  /// Words between what wraps and what is read; a folded product spoils 66 bits of them.
  static constexpr u64 kGuardWords = sizeof(W) == 4 ? 3 : 2;

  MiddleProduct() = default;
  /// Middle products of at most `window` words with an operand of `power` words.
  MiddleProduct(u64 power, u64 window, ShapeChoice choice = ShapeChoice::kRow) {
    constexpr u64 k = sizeof(W) / sizeof(u32);
    words_ = power + window + kGuardWords;
    ParametersBox box;
    const auto shape = [&](u64 words) -> const Parameters& {
      return basic_table<W>().parameters_for(box, nullptr, words, 1, choice);
    };
    if (shape(words_).cyclic_words() >= k * words_) {
      form_ = ProductForm::cyclic;
      return;
    }
    const u64 length = std::max(words_, 2 * power);
    if (shape(length).folding_words() >= k * length) {
      form_ = ProductForm::folded;
      words_ = length;
      return;
    }
    // A shape at the limit of its accuracy does not fold, but then the next one does.
    const u64 next = shape(length).max_bits() / (8 * sizeof(W)) + 1;
    if (next < length + length / 2 && shape(next).folding_words() >= k * next) {
      form_ = ProductForm::folded;
      words_ = next;
    }
  }

  /// `whole` when no shape wraps at that length.
  ProductForm form() const { return form_; }
  /// What basic_table() is asked for.
  u64 words() const { return words_; }

 private:
  ProductForm form_ = ProductForm::whole;
  u64 words_ = 0;
};

}  // namespace orl
