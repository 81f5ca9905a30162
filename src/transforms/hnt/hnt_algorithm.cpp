#include <algorithm>

#include "core/exceptions.h"
#include "simd/target.h"
#include "transforms/common/transform_driver.h"
#include "transforms/fft/fft.h"
#include "transforms/hnt/hnt.h"
#include "transforms/hnt/hnt_tables.h"
#include "transforms/vst/vst.h"
#include "words/words.h"

namespace orl {
namespace {

constexpr const char* kId = "HNT";
constexpr u64 kMaxBits = 0x7FFF0000000;

/// The shapes of both parts, for one operation.
struct Parts {
  Parts(const HntRow& row, const HntTables* tables, u64 tds)
      : residues(vst_parameters(residues_box, tables ? tables->parts() : nullptr, VstShape(row.residues()))),
        remainder(fft_algorithm().parameters_for(remainder_box, tables ? tables->parts() : nullptr,
                                                 row.remainder_bits(), tds)) {}

  u64 residues_bytes() const { return LinearHeapBuffer::cut_bytes<u8>(residues.transform_size()); }
  u64 transform_bytes() const {
    return residues_bytes() + LinearHeapBuffer::cut_bytes<u8>(remainder.transform_size());
  }
  u64 scratch_bytes() const { return std::max(residues.scratch_size(), remainder.scratch_size()); }

  ParametersBox residues_box, remainder_box;
  const Parameters& residues;
  const Parameters& remainder;
};

class HntParameters final : public Parameters {
 public:
  HntParameters(const HntRow& row, const HntTables* tables, u64 tds)
      : row_(row), tables_(tables), tds_(tds), target_(simd::active_target()) {
    check_hnt_row(row);
    const Parts parts(row, tables, tds);
    max_bits_ = row.bits();
    transform_size_ = parts.transform_bytes();
    scratch_size_ = LinearHeapBuffer::cut_bytes<u32>(row.wrapped_words()) +
                    LinearHeapBuffer::cut_bytes<u32>(row.remainder) +
                    LinearHeapBuffer::cut_bytes<u8>(parts.scratch_bytes());
  }

  void forward(void* F, Words<u32> A, void* tmp, ParallelContext parallel) const override {
    check_length(kId, max_bits_, A.count);
    const Parts parts = running_parts();
    const Areas areas(*this, tmp);
    const u64 n = row_.wrapped_words();
    Words<u32> a = A;
    if (A.count > n) {
      fold(areas.wrapped, A.ptr, A.count, parallel);
      a = {areas.wrapped, n};
    }
    parts.residues.wrapped()->forward_cyclic(F, a, areas.rest, parallel);
    parts.remainder.forward(second(parts, F), A.part(0, std::min<u64>(A.count, row_.remainder)), areas.rest,
                            parallel);
  }
  void inverse_fsqr(void* F, Window<u32> T, void* tmp, ParallelContext parallel) const override {
    inverse(F, nullptr, T, tmp, parallel);
  }
  void inverse_fmul(void* F, const void* G, Window<u32> T, void* tmp,
                    ParallelContext parallel) const override {
    inverse(F, G, T, tmp, parallel);
  }
  bool compatible(const Parameters& other) const override {
    const auto* o = dynamic_cast<const HntParameters*>(&other);
    return o && o->row_ == row_ && o->target_ == target_;
  }

 private:
  struct Areas {
    u32* wrapped;    // L words: a folded operand, then the product modulo W^L - 1
    u32* remainder;  // R words
    void* rest;      // of the part at work
    Areas(const HntParameters& p, void* tmp) {
      LinearHeapBuffer memory(tmp, p.scratch_size());
      wrapped = memory.cut<u32>(p.row_.wrapped_words());
      remainder = memory.cut<u32>(p.row_.remainder);
      rest = memory.ptr;
    }
  };

  Parts running_parts() const {
    if (!tables_ || !tables_->parts())
      throw InvalidParametersException(kId, "Invalid Function Parameters:   ");
    return Parts(row_, tables_, tds_);
  }
  static void* second(const Parts& parts, void* F) { return static_cast<u8*>(F) + parts.residues_bytes(); }
  static const void* second(const Parts& parts, const void* F) {
    return static_cast<const u8*>(F) + parts.residues_bytes();
  }

  // T = A modulo W^L - 1; R <= L, so A folds once.
  void fold(u32* T, const u32* A, u64 AL, ParallelContext parallel) const {
    const u64 n = row_.wrapped_words(), above = AL - n;
    const u32 carry = bp_add<u32>(T, A, A + n, above, 0, parallel);
    bp_copy<u32>(T + above, A + above, n - above, parallel);
    if (bp_carry<u32>(static_cast<s32>(carry), T + above, n - above, parallel)) bp_carry<u32>(1, T, n);
  }

  void inverse(void* F, const void* G, Window<u32> T, void* tmp, ParallelContext parallel) const {
    check_length(kId, max_bits_, T.len);
    const Parts parts = running_parts();
    const Areas areas(*this, tmp);
    try {
      parts.residues.wrapped()->pointwise_cyclic(F, G ? G : F, areas.wrapped, areas.rest, parallel);
      const Window<u32> remainder{areas.remainder, 0, row_.remainder};
      if (G)
        parts.remainder.inverse_fmul(second(parts, F), second(parts, G), remainder, areas.rest, parallel);
      else
        parts.remainder.inverse_fsqr(second(parts, F), remainder, areas.rest, parallel);
    } catch (const ConvolutionFailedException& failure) {
      throw AlgorithmFailedException(kId, failure.message());
    } catch (const AlgorithmFailedException& failure) {
      throw AlgorithmFailedException(kId, failure.message());
    }
    combine(areas.wrapped, areas.remainder, parallel);
    write(areas, T, parallel);
  }

  // C, D become Q, H.
  void combine(u32* C, u32* D, ParallelContext parallel) const {
    const u64 n = row_.wrapped_words(), r = row_.remainder;
    if (bp_strip<u32>(~u32{0}, C, n, parallel) == 0) bp_fill<u32>(C, n, 0, parallel);
    bp_sub<u32>(D, C, D, r, 0, parallel);
    const u32 borrow = bp_sub<u32>(C, C, D, r, 0, parallel);
    if (bp_carry<u32>(-static_cast<s32>(borrow), C + r, n - r, parallel)) bp_carry<u32>(-1, D, r, parallel);
    // No product reaches the last word.
    if (D[r - 1] != 0) throw AlgorithmFailedException(kId, "The parts of a product disagree.");
  }
  void write(const Areas& areas, Window<u32> T, ParallelContext parallel) const {
    const u64 n = row_.wrapped_words();
    if (T.skip < n) bp_copy<u32>(T.T, areas.wrapped + T.skip, std::min(T.len, n) - T.skip, parallel);
    const u64 from = std::max(T.skip, n);
    if (T.len > from)
      bp_copy<u32>(T.T + (from - T.skip), areas.remainder + (from - n), T.len - from, parallel);
  }

  HntRow row_;
  const HntTables* tables_;
  u64 tds_;
  simd::Target target_;
};

const HntRow& row_of(u64 bits) {
  if (bits > kMaxBits) throw LimitExceededException(kId, kMaxBits, bits);
  return find_hnt_row(bits);
}
/// The rows that products of up to `bits` take.
std::span<const HntRow> rows_to(u64 bits) {
  const auto rows = hnt_rows();
  return rows.first(static_cast<u64>(&row_of(bits) - rows.data()) + 1);
}

// Products run as two transforms and an inverse, the forms of the base class.
class HntAlgorithm final : public Algorithm {
 public:
  HntAlgorithm() : Algorithm(kMaxBits, kId, "Hybrid NTT", "HNTs", "original") {}

  u64 table_bytes(u64 bits) const override { return HntTables::bytes(rows_to(bits)); }
  void ensure_tables(TransformTables& tables, u64 bits) const override {
    if (!tables.find(kId)) tables.put(kId, std::make_unique<HntTables>());
    static_cast<HntTables*>(tables.find(kId))->grow(tables.memory(), rows_to(bits));
  }
  MultiplySizes sizes(u64 bits, u64 tds) const override {
    return HntParameters(row_of(bits), nullptr, tds).sizes();
  }
  const Parameters& parameters_for(ParametersBox& out, const TransformTables* tables, u64 bits,
                                   u64 tds) const override {
    return hnt_parameters(out, tables, row_of(bits), tds);
  }
};

}  // namespace

const Parameters& hnt_parameters(ParametersBox& out, const TransformTables* tables, const HntRow& row,
                                 u64 tds) {
  return out.emplace<HntParameters>(row, tables ? static_cast<const HntTables*>(tables->find(kId)) : nullptr,
                                    tds);
}

const Algorithm& hnt_algorithm() {
  static const HntAlgorithm algorithm;
  return algorithm;
}

}  // namespace orl
