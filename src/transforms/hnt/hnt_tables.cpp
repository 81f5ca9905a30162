#include "transforms/hnt/hnt_tables.h"

#include <algorithm>
#include <vector>

#include "transforms/fft/fft.h"
#include "transforms/vst/vst_tables.h"

namespace orl {
namespace {

std::vector<VstRow> residues_of(std::span<const HntRow> rows) {
  std::vector<VstRow> residues;
  residues.reserve(rows.size());
  for (const HntRow& row : rows) residues.push_back(row.residues());
  return residues;
}

u64 largest_remainder_bits(std::span<const HntRow> rows) {
  u64 bits = 0;
  for (const HntRow& row : rows) bits = std::max(bits, row.remainder_bits());
  return bits;
}

}  // namespace

u64 HntTables::bytes(std::span<const HntRow> rows) {
  return VstTables::bytes(residues_of(rows)) +
         LinearHeapBuffer::cut_bytes<u8>(fft_algorithm().table_bytes(largest_remainder_bits(rows)));
}

void HntTables::grow(LinearHeapBuffer& memory, std::span<const HntRow> rows) {
  if (parts_ && rows.back().bits() <= bits_) return;
  parts_ = std::make_unique<TransformTables>(memory.cut_buffer(bytes(rows)));
  bits_ = rows.back().bits();
  auto roots = std::make_unique<VstTables>();
  roots->grow(parts_->memory(), residues_of(rows));
  parts_->put("VST", std::move(roots));
  fft_algorithm().ensure_tables(*parts_, largest_remainder_bits(rows));
}

}  // namespace orl
