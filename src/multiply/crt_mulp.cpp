#include "multiply/crt_mulp.h"

#include <algorithm>
#include <utility>

#include "core/ending.h"
#include "core/exceptions.h"
#include "multiply/crt_combine.h"
#include "multiply/product_areas.h"
#include "words/words.h"

namespace orl {
namespace {

u64 area_bytes(u64 words) { return LinearHeapBuffer::cut_bytes<u32>(words); }

/// The memory of one product.
struct Areas {
  TransformAreas transforms;
  u32* residue;      ///< n words: folds, the cyclic product on its way, the negacyclic product
  CrtPieces cyclic;  ///< where the cyclic product waits
};

u64 rest_words(u64 n, u64 window) { return n - std::min(n, window); }

u64 bytes(const Parameters& params, u64 window, bool square) {
  const u64 n = params.cyclic_words();
  const u64 transform = LinearHeapBuffer::cut_bytes<u8>(params.transform_size());
  const u64 second = square ? area_bytes(n) : std::max(transform, area_bytes(n));
  return transform + second + LinearHeapBuffer::cut_bytes<u8>(params.scratch_size()) +
         area_bytes(rest_words(n, window));
}

// `places`: the words of the window that may hold the cyclic product, all of them or none.
Areas cut(const Parameters& params, const CrtWindow& window, u64 places, bool square,
          LinearHeapBuffer buffer) {
  const u64 required = bytes(params, places, square);
  if (buffer.size < required) throw BufferTooSmallException("CRT_mulp()", buffer.size, required);
  const u64 transform = LinearHeapBuffer::cut_bytes<u8>(params.transform_size());
  Areas areas;
  areas.transforms.F = buffer.cut<u8>(transform);
  areas.residue = buffer.cut<u32>(
      (square ? area_bytes(window.n) : std::max(transform, area_bytes(window.n))) / sizeof(u32));
  areas.transforms.G = square ? areas.transforms.F : areas.residue;
  areas.transforms.tmp = buffer.cut<u8>(params.scratch_size());
  u32* const rest = buffer.cut<u32>(rest_words(window.n, places));
  if (places > 0)
    areas.cyclic = crt_pieces_in_place(window, rest);
  else
    areas.cyclic.add(0, rest);
  return areas;
}

// T[0, n) = A mod (W^n - 1), in [0, W^n - 1]; n < A.count <= 2n.
void fold_cyclic(u32* T, Words<u32> A, u64 n, ParallelContext parallel) {
  const u64 above = A.count - n;
  const u32 carry = bp_add(T, A.ptr, A.ptr + n, above, 0, parallel);
  bp_copy(T + above, A.ptr + above, n - above, parallel);
  const s32 over = bp_carry<u32>(static_cast<s32>(carry), T + above, n - above, parallel);
  bp_carry<u32>(over, T, n, parallel);
}

// T[0, n) = A mod (W^n + 1). True when that is W^n, whose words are zero.
bool fold_negacyclic(u32* T, Words<u32> A, u64 n, ParallelContext parallel) {
  const u64 above = A.count - n;
  const u32 borrow = bp_sub(T, A.ptr, A.ptr + n, above, 0, parallel);
  bp_copy(T + above, A.ptr + above, n - above, parallel);
  const s32 under = bp_carry<u32>(-static_cast<s32>(borrow), T + above, n - above, parallel);
  return bp_carry<u32>(-under, T, n, parallel) != 0;
}

// T[0, n) = -B mod (W^n + 1), the product with W^n; B.count <= n. True when that is W^n itself.
bool negate_negacyclic(u32* T, Words<u32> B, u64 n, ParallelContext parallel) {
  bp_fill(T, n, 0, parallel);
  if (bp_strip<u32>(0, B.ptr, B.count, parallel) == 0) return false;
  // W^n + 1 - B = complement of B, and 2.
  bp_not(T, B.ptr, B.count, parallel);
  bp_fill(T + B.count, n - B.count, ~u32{0}, parallel);
  return bp_carry<u32>(2, T, n, parallel) != 0;
}

void keep(const CrtPieces& pieces, const u32* C, u64 n, ParallelContext parallel) {
  for (u64 p = 0; p < pieces.count; ++p) {
    const u64 begin = pieces.piece[p].begin;
    bp_copy(pieces.piece[p].words, C + begin, pieces.end(p, n) - begin, parallel);
  }
}

void cyclic_product(const Parameters& params, const Areas& areas, Words<u32> A, Words<u32> B,
                    ParallelContext parallel) {
  const u64 n = params.cyclic_words();
  if (A.count > n) {
    fold_cyclic(areas.residue, A, n, parallel);
    A = {areas.residue, n};
  }
  const bool whole = areas.cyclic.count == 1;
  u32* const C = whole ? areas.cyclic.piece[0].words : areas.residue;
  params.wrapped()->product_wrapped(Wrap::cyclic, areas.transforms, A, B, C, parallel);
  if (!whole) keep(areas.cyclic, C, n, parallel);
}

bool negacyclic_product(const Parameters& params, const Areas& areas, Words<u32> A, Words<u32> B,
                        ParallelContext parallel) {
  const u64 n = params.cyclic_words();
  if (A.count > n) {
    if (fold_negacyclic(areas.residue, A, n, parallel))
      return negate_negacyclic(areas.residue, B, n, parallel);
    A = {areas.residue, n};
  }
  return params.wrapped()->product_wrapped(Wrap::negacyclic, areas.transforms, A, B, areas.residue, parallel);
}

void check_length(const Parameters& params, u64 words) {
  if (params.max_bits() % 32 != 0)
    internal_error("CRT_mulp()", "CRT_mulp(): Convolution length is not divisible by the word-size.");
  if (2 * params.cyclic_words() < words)
    internal_error("CRT_mulp()", "CRT_mulp(): Convolution length is not long enough.");
}

// A.count >= B.count.
void multiply(const Parameters& params, Window<u32> T, Words<u32> A, Words<u32> B, LinearHeapBuffer tmp,
              ParallelContext parallel) {
  const CrtWindow window{T, params.cyclic_words()};
  const bool square = A.ptr == B.ptr && A.count == B.count;
  const bool over_operand = words_overlap(T, A) || words_overlap(T, B);
  const Areas areas = cut(params, window, over_operand ? 0 : T.count(), square, tmp);
  cyclic_product(params, areas, A, B, parallel);
  const bool flag = negacyclic_product(params, areas, A, B, parallel);
  crt_combine(window, areas.cyclic, areas.residue, flag, parallel);
}

}  // namespace

u64 crt_mulp_bytes(const Parameters& params, u64 window) { return bytes(params, window, false); }
u64 crt_sqrp_bytes(const Parameters& params, u64 window) { return bytes(params, window, true); }

void CRT_mulp(const Parameters& params, Window<u32> T, Words<u32> A, Words<u32> B, LinearHeapBuffer tmp,
              ParallelContext parallel) {
  check_length(params, A.count + B.count);
  if (A.count < B.count) std::swap(A, B);
  multiply(params, T, A, B, tmp, parallel);
}

void CRT_sqrp(const Parameters& params, Window<u32> T, Words<u32> A, LinearHeapBuffer tmp,
              ParallelContext parallel) {
  check_length(params, 2 * A.count);
  multiply(params, T, A, A, tmp, parallel);
}

}  // namespace orl
