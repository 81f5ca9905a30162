#include "multiply/basecase.h"

#include <algorithm>
#include <type_traits>

#include "multiply/algorithm_table.h"
#include "multiply/basecase_karatsuba.h"
#include "multiply/basecase_kernels.h"

namespace orl {
namespace {

template <class W>
Karatsuba<W> tuned() {
  return {basecase_kernels<W>(), kKaratsubaSqrWords<W>, kKaratsubaMulWords<W>};
}

}  // namespace

template <class W>
void mulB(W* T, const W* A, u64 AL, const W* B, u64 BL) {
  if (AL < BL) {
    std::swap(A, B);
    std::swap(AL, BL);
  }
  basecase_kernels<W>().mul(T, A, AL, B, BL);
}

template <class W>
void elmB(W* T, const W* A, const W* B, u64 L) {
  basecase_kernels<W>().elm(T, A, B, L);
}

template <class W>
void sqrB(W* T, const W* A, u64 L) {
  basecase_kernels<W>().sqr(T, A, L);
}

template <class W>
void mulK(W* T, const W* A, u64 AL, const W* B, u64 BL, W* tmp) {
  if (AL < BL) {
    std::swap(A, B);
    std::swap(AL, BL);
  }
  tuned<W>().mulK(T, A, AL, B, BL, tmp);
}

template <class W>
void elmK(W* T, const W* A, const W* B, u64 L, W* tmp) {
  tuned<W>().elmK(T, A, B, L, tmp);
}

template <class W>
void sqrK(W* T, const W* A, u64 L, W* tmp) {
  tuned<W>().sqrK(T, A, L, tmp);
}

template <class W>
void mul(W* T, const W* A, u64 AL, const W* B, u64 BL, W* tmp) {
  tuned<W>().mul(T, A, AL, B, BL, tmp);
}

template <class W>
void elm(W* T, const W* A, const W* B, u64 L, W* tmp) {
  tuned<W>().elm(T, A, B, L, tmp);
}

template <class W>
void sqr(W* T, const W* A, u64 L, W* tmp) {
  tuned<W>().sqr(T, A, L, tmp);
}

template <class W>
void mul_window(Window<W> T, Words<W> A, Words<W> B, W* tmp) {
  const TrimmedProduct t = trim_product(T.skip, T.len, A.count, B.count);
  const u64 size = t.a_length + t.b_length;
  const bool whole = t.skip == 0 && t.len == size;
  W* product = whole ? T.T : tmp;
  mul(product, A.ptr + t.a_offset, t.a_length, B.ptr + t.b_offset, t.b_length, whole ? tmp : tmp + size);
  if (!whole) std::copy(tmp + t.skip, tmp + t.len, T.T);
}

template <class W>
void sqr_window(Window<W> T, Words<W> A, W* tmp) {
  const TrimmedProduct t = trim_square(T.skip, T.len, A.count);
  const u64 size = 2 * t.a_length;
  const bool whole = t.skip == 0 && t.len == size;
  sqr(whole ? T.T : tmp, A.ptr + t.a_offset, t.a_length, whole ? tmp : tmp + size);
  if (!whole) std::copy(tmp + t.skip, tmp + t.len, T.T);
}

template <class W>
u64 mul_scratch(u64 AL, u64 BL) {
  constexpr u64 cutoff = kKaratsubaMulWords<W>;
  const u64 n = std::min(AL, BL);
  return n < cutoff ? 0 : (2 * n + karatsuba_words(n, cutoff)) * sizeof(W);
}

template <class W>
u64 elm_scratch(u64 L) {
  return karatsuba_words(L, kKaratsubaMulWords<W>) * sizeof(W);
}

template <class W>
u64 sqr_scratch(u64 L) {
  return karatsuba_words(L, kKaratsubaSqrWords<W>) * sizeof(W);
}

template <class W>
u64 mul_window_scratch(u64 skip, u64 len, u64 AL, u64 BL) {
  const TrimmedProduct t = trim_product(skip, len, AL, BL);
  return (t.a_length + t.b_length) * sizeof(W) + mul_scratch<W>(t.a_length, t.b_length);
}

template <class W>
u64 sqr_window_scratch(u64 skip, u64 len, u64 L) {
  const u64 length = trim_square(skip, len, L).a_length;
  return 2 * length * sizeof(W) + sqr_scratch<W>(length);
}

// The operands together hold at most n words, and the product takes as many before the window is cut from it.
template <class W>
u64 transform_style_scratch(u64 n) {
  constexpr u64 sqr_cutoff = kKaratsubaSqrWords<W>, mul_cutoff = kKaratsubaMulWords<W>;
  const u64 unit = sizeof(W) == 4 ? 16 : 8;
  const u64 recursive =
      unit * std::max(karatsuba_words(n, sqr_cutoff), 2 * n + karatsuba_words(n, mul_cutoff));
  return recursive + (sizeof(W) == 4 ? 12 * n + 4 : 24 * n + 8);
}

#define ORL_BASECASE(W)                                           \
  template void mulB<W>(W*, const W*, u64, const W*, u64);        \
  template void elmB<W>(W*, const W*, const W*, u64);             \
  template void sqrB<W>(W*, const W*, u64);                       \
  template void mulK<W>(W*, const W*, u64, const W*, u64, W*);    \
  template void elmK<W>(W*, const W*, const W*, u64, W*);         \
  template void sqrK<W>(W*, const W*, u64, W*);                   \
  template void mul<W>(W*, const W*, u64, const W*, u64, W*);     \
  template void elm<W>(W*, const W*, const W*, u64, W*);          \
  template void sqr<W>(W*, const W*, u64, W*);                    \
  template void mul_window<W>(Window<W>, Words<W>, Words<W>, W*); \
  template void sqr_window<W>(Window<W>, Words<W>, W*);           \
  template u64 mul_scratch<W>(u64, u64);                          \
  template u64 elm_scratch<W>(u64);                               \
  template u64 sqr_scratch<W>(u64);                               \
  template u64 mul_window_scratch<W>(u64, u64, u64, u64);         \
  template u64 sqr_window_scratch<W>(u64, u64, u64);              \
  template u64 transform_style_scratch<W>(u64);

ORL_BASECASE(u32)
ORL_BASECASE(u64)
#undef ORL_BASECASE

}  // namespace orl
