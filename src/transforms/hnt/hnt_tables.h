// Roots and twiddle factors of the algorithm "HNT".
#pragma once

#include <memory>

#include "multiply/algorithm.h"
#include "transforms/hnt/hnt_shape.h"

namespace orl {

/// The tables of both parts, cut from one buffer.
class HntTables final : public FamilyTables {
 public:
  /// Bytes that grow() cuts from an empty table for all of `rows`.
  static u64 bytes(std::span<const HntRow> rows);
  void grow(LinearHeapBuffer& memory, std::span<const HntRow> rows);
  /// Null before grow().
  const TransformTables* parts() const { return parts_.get(); }

 private:
  std::unique_ptr<TransformTables> parts_;
  u64 bits_ = 0;
};

}  // namespace orl
