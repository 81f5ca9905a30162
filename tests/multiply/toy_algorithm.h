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
class ToyParameters final : public Parameters, public WrappedProducts {
 public:
  ToyParameters(u64 words, u64 cyclic_words, u64 extra_bits = 0) {
    max_bits_ = 32 * words + extra_bits;
    words_ = cyclic_words;
    if (cyclic_words > 0) wrapped_ = this;
    transform_size_ = LinearHeapBuffer::cut_bytes<u8>(4 * std::max(words, cyclic_words) + 1);
    scratch_size_ = 4 * words + 5;
  }

  void forward(void* F, Words<u32> A, void* tmp, ParallelContext) const override {
    put(F, A, tmp, 'd', max_bits_ / 32);
  }
  void inverse_fsqr(void* F, Window<u32> T, void* tmp, ParallelContext parallel) const override {
    inverse_fmul(F, F, T, tmp, parallel);
  }
  void inverse_fmul(void* F, const void* G, Window<u32> T, void* tmp, ParallelContext) const override {
    write(T.T, product(F, G, tmp, 'd') >> (32 * T.skip), T.count());
  }
  bool compatible(const Parameters&) const override { return false; }

  void forward_wrapped(Wrap ring, void* F, Words<u32> A, void* tmp, ParallelContext) const override {
    put(F, A, tmp, kind(ring), words_);
  }
  // Zero comes as W^n - 1 in the cyclic ring.
  bool pointwise_wrapped(Wrap ring, void* F, const void* G, u32* T, void* tmp,
                         ParallelContext) const override {
    const bool cyclic = ring == Wrap::cyclic;
    const Mpz whole = Mpz(1) << (32 * words_), modulus = cyclic ? whole - Mpz(1) : whole + Mpz(1);
    const Mpz residue = product(F, G, tmp, kind(ring)) % modulus;
    write(T, cyclic && residue == Mpz(0) ? modulus : residue, words_);
    return residue == whole;
  }

 private:
  static constexpr u8 kTrash = 0x6b;

  static char kind(Wrap ring) { return ring == Wrap::cyclic ? 'c' : 'n'; }
  void put(void* F, Words<u32> A, void* tmp, char kind, u64 limit) const {
    if (A.count > limit) throw TransformTooSmallException("ToyParameters", "Transform length is too small.");
    const std::vector<u32> copy(A.ptr, A.ptr + A.count);
    std::memset(tmp, kTrash, scratch_size_);
    std::memset(F, 0, transform_size_);
    static_cast<char*>(F)[transform_size_ - 1] = kind;
    if (A.count > 0) std::memcpy(F, copy.data(), 4 * A.count);
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
  MultiplySizes sizes(u64 bits, u64 tds) const override {
    ParametersBox box;
    return parameters_for(box, nullptr, bits, tds).sizes();
  }
  const Parameters& parameters_for(ParametersBox& out, const TransformTables*, u64 bits, u64) const override {
    u64 words = 1;
    for (u64 before = 1; 32 * words < bits;) before = std::exchange(words, words + before);
    return out.emplace<ToyParameters>(words, words - std::min(words, missing_));
  }

 private:
  u64 missing_;
};

}  // namespace orl::test
