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
  void* F;           ///< first transform
  void* G;           ///< second transform; of a square, the first
  u32* residue;      ///< n words: folds, the cyclic product on its way, the negacyclic product
  void* tmp;         ///< of the shape
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
  areas.F = buffer.cut<u8>(transform);
  areas.residue = buffer.cut<u32>(
      (square ? area_bytes(window.n) : std::max(transform, area_bytes(window.n))) / sizeof(u32));
  areas.G = square ? areas.F : areas.residue;
  areas.tmp = buffer.cut<u8>(params.scratch_size());
  u32* const rest = buffer.cut<u32>(rest_words(window.n, places));
  if (places > 0)
    areas.cyclic = crt_pieces_in_place(window, rest);
  else
    areas.cyclic.add(0, rest);
  return areas;
}

// T[0, n) = A[0, AL) mod (W^n - 1), in [0, W^n - 1]; n < AL <= 2n.
void fold_cyclic(u32* T, const u32* A, u64 AL, u64 n, ParallelContext parallel) {
  const u64 above = AL - n;
  const u32 carry = bp_add(T, A, A + n, above, 0, parallel);
  bp_copy(T + above, A + above, n - above, parallel);
  const s32 over = bp_carry<u32>(static_cast<s32>(carry), T + above, n - above, parallel);
  bp_carry<u32>(over, T, n, parallel);
}

// T[0, n) = A[0, AL) mod (W^n + 1). True when that is W^n, whose words are zero.
bool fold_negacyclic(u32* T, const u32* A, u64 AL, u64 n, ParallelContext parallel) {
  const u64 above = AL - n;
  const u32 borrow = bp_sub(T, A, A + n, above, 0, parallel);
  bp_copy(T + above, A + above, n - above, parallel);
  const s32 under = bp_carry<u32>(-static_cast<s32>(borrow), T + above, n - above, parallel);
  return bp_carry<u32>(-under, T, n, parallel) != 0;
}

// T[0, n) = -B[0, BL) mod (W^n + 1), the product with W^n; BL <= n. True when that is W^n itself.
bool negate_negacyclic(u32* T, const u32* B, u64 BL, u64 n, ParallelContext parallel) {
  bp_fill(T, n, 0, parallel);
  if (bp_strip<u32>(0, B, BL, parallel) == 0) return false;
  // W^n + 1 - B = complement of B, and 2.
  bp_not(T, B, BL, parallel);
  bp_fill(T + BL, n - BL, ~u32{0}, parallel);
  return bp_carry<u32>(2, T, n, parallel) != 0;
}

void keep(const CrtPieces& pieces, const u32* C, u64 n, ParallelContext parallel) {
  for (u64 p = 0; p < pieces.count; ++p) {
    const u64 begin = pieces.piece[p].begin;
    bp_copy(pieces.piece[p].words, C + begin, pieces.end(p, n) - begin, parallel);
  }
}

void cyclic_product(const Parameters& params, const Areas& areas, const u32* A, u64 AL, const u32* B, u64 BL,
                    ParallelContext parallel) {
  const u64 n = params.cyclic_words();
  if (AL > n) {
    fold_cyclic(areas.residue, A, AL, n, parallel);
    A = areas.residue;
    AL = n;
  }
  const bool whole = areas.cyclic.count == 1;
  u32* const C = whole ? areas.cyclic.piece[0].words : areas.residue;
  params.product_cyclic(areas.F, areas.G, A, AL, B, BL, C, areas.tmp, parallel);
  if (!whole) keep(areas.cyclic, C, n, parallel);
}

bool negacyclic_product(const Parameters& params, const Areas& areas, const u32* A, u64 AL, const u32* B,
                        u64 BL, ParallelContext parallel) {
  const u64 n = params.cyclic_words();
  if (AL > n) {
    if (fold_negacyclic(areas.residue, A, AL, n, parallel))
      return negate_negacyclic(areas.residue, B, BL, n, parallel);
    A = areas.residue;
    AL = n;
  }
  return params.product_negacyclic(areas.F, areas.G, A, AL, B, BL, areas.residue, areas.tmp, parallel);
}

void check_length(const Parameters& params, u64 words) {
  if (params.max_bits() % 32 != 0)
    internal_error("CRT_mulp()", "CRT_mulp(): Convolution length is not divisible by the word-size.");
  if (2 * params.cyclic_words() < words)
    internal_error("CRT_mulp()", "CRT_mulp(): Convolution length is not long enough.");
}

void multiply(const Parameters& params, const CrtWindow& window, const u32* A, u64 AL, const u32* B, u64 BL,
              bool square, LinearHeapBuffer tmp, ParallelContext parallel) {
  const u64 length = window.len - window.skip;
  const bool over_operand =
      words_overlap<u32>(window.T, length, A, AL) || words_overlap<u32>(window.T, length, B, BL);
  const Areas areas = cut(params, window, over_operand ? 0 : length, square, tmp);
  cyclic_product(params, areas, A, AL, B, BL, parallel);
  const bool flag = negacyclic_product(params, areas, A, AL, B, BL, parallel);
  crt_combine(window, areas.cyclic, areas.residue, flag, parallel);
}

}  // namespace

u64 crt_mulp_bytes(const Parameters& params, u64 window) { return bytes(params, window, false); }
u64 crt_sqrp_bytes(const Parameters& params, u64 window) { return bytes(params, window, true); }

void CRT_mulp(const Parameters& params, u32* T, u64 skip, u64 len, const u32* A, u64 AL, const u32* B, u64 BL,
              LinearHeapBuffer tmp, ParallelContext parallel) {
  check_length(params, AL + BL);
  if (AL < BL) {
    std::swap(A, B);
    std::swap(AL, BL);
  }
  multiply(params, {T, skip, len, params.cyclic_words()}, A, AL, B, BL, false, tmp, parallel);
}

void CRT_sqrp(const Parameters& params, u32* T, u64 skip, u64 len, const u32* A, u64 L, LinearHeapBuffer tmp,
              ParallelContext parallel) {
  check_length(params, 2 * L);
  multiply(params, {T, skip, len, params.cyclic_words()}, A, L, A, L, true, tmp, parallel);
}

}  // namespace orl
