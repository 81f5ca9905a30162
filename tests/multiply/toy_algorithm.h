// An algorithm of small shapes whose products, wrapped ones too, come from GMP.
#pragma once

#include <algorithm>
#include <cstring>
#include <vector>

#include "core/exceptions.h"
#include "multiply/algorithm.h"
#include "support/gmp_oracle.h"

namespace orl::test {

/// A shape for products of up to `words` words, with wrapped products of `cyclic_words`, or none. Every
/// operation overwrites all that it may: the first transform, and the scratch.
class ToyParameters final : public Parameters {
 public:
  ToyParameters(u64 words, u64 cyclic_words, u64 extra_bits = 0) {
    max_bits_ = 32 * words + extra_bits;
    cyclic_words_ = cyclic_words;
    transform_size_ = LinearHeapBuffer::cut_bytes<u8>(4 * std::max(words, cyclic_words) + 1);
    scratch_size_ = 4 * words + 5;
  }

  void forward(void* F, const u32* A, u64 AL, void* tmp, ParallelContext) const override {
    put(F, A, AL, tmp, 'd', max_bits_ / 32);
  }
  void inverse_fsqr(void* F, u32* T, u64 skip, u64 len, void* tmp, ParallelContext parallel) const override {
    inverse_fmul(F, F, T, skip, len, tmp, parallel);
  }
  void inverse_fmul(void* F, const void* G, u32* T, u64 skip, u64 len, void* tmp,
                    ParallelContext) const override {
    write(T, product(F, G, tmp, 'd') >> (32 * skip), len - skip);
  }
  bool compatible(const Parameters&) const override { return false; }

  void forward_cyclic(void* F, const u32* A, u64 AL, void* tmp, ParallelContext) const override {
    put(F, A, AL, tmp, 'c', cyclic_words_);
  }
  void forward_negacyclic(void* F, const u32* A, u64 AL, void* tmp, ParallelContext) const override {
    put(F, A, AL, tmp, 'n', cyclic_words_);
  }
  // Zero comes as W^n - 1.
  void pointwise_cyclic(void* F, const void* G, u32* T, void* tmp, ParallelContext) const override {
    const Mpz modulus = (Mpz(1) << (32 * cyclic_words_)) - Mpz(1);
    const Mpz residue = product(F, G, tmp, 'c') % modulus;
    write(T, residue == Mpz(0) ? modulus : residue, cyclic_words_);
  }
  bool pointwise_negacyclic(void* F, const void* G, u32* T, void* tmp, ParallelContext) const override {
    const Mpz whole = Mpz(1) << (32 * cyclic_words_);
    const Mpz residue = product(F, G, tmp, 'n') % (whole + Mpz(1));
    write(T, residue, cyclic_words_);
    return residue == whole;
  }

 private:
  static constexpr u8 kTrash = 0x6b;

  void put(void* F, const u32* A, u64 AL, void* tmp, char kind, u64 limit) const {
    if (AL > limit) throw TransformTooSmallException("ToyParameters", "Transform length is too small.");
    const std::vector<u32> copy(A, A + AL);
    std::memset(tmp, kTrash, scratch_size_);
    std::memset(F, 0, transform_size_);
    static_cast<char*>(F)[transform_size_ - 1] = kind;
    if (AL > 0) std::memcpy(F, copy.data(), 4 * AL);
  }
  Mpz get(const void* F, char kind) const {
    if (static_cast<const char*>(F)[transform_size_ - 1] != kind)
      throw InvalidTransformException("ToyParameters", "Transforms are mixed up.");
    return Mpz(static_cast<const u8*>(F), transform_size_ - 1);
  }
  Mpz product(void* F, const void* G, void* tmp, char kind) const {
    const Mpz p = get(F, kind) * get(G, kind);
    std::memset(F, kTrash, transform_size_);
    std::memset(tmp, kTrash, scratch_size_);
    return p;
  }
  static void write(u32* T, const Mpz& value, u64 L) {
    const std::vector<u32> words = value.words<u32>(L);
    std::memcpy(T, words.data(), 4 * L);
  }
};

/// Shapes of 1, 2, 3, 5, 8, 13 ... words. Wrapped products of as many words, of `missing` words less, or none
/// (`missing` all ones).
class ToyAlgorithm final : public Algorithm {
 public:
  explicit ToyAlgorithm(u64 missing)
      : Algorithm(u64{1} << 40, "TOY", "Toy", "TOY", "Toy"), missing_(missing) {}

  u64 table_bytes(u64) const override { return 0; }
  void ensure_tables(TransformTables&, u64) const override {}
  MultiplySizes sizes(u64 bits, u64) const override { return shape(bits).sizes(); }
  const Parameters& parameters_for(ParametersBox& out, const TransformTables*, u64 bits, u64) const override {
    return out.emplace<ToyParameters>(shape(bits));
  }

 private:
  ToyParameters shape(u64 bits) const {
    u64 words = 1;
    for (u64 before = 1; 32 * words < bits;) before = std::exchange(words, words + before);
    return {words, words - std::min(words, missing_)};
  }

  u64 missing_;
};

}  // namespace orl::test
