// The number types of a computation in RAM, for the long functions that are written once over a store.
#pragma once

#include "numbers/big_float.h"
#include "numbers/exact_float.h"
#include "numbers/run_context.h"
#include "numbers/transform.h"

namespace orl {

template <class W>
struct RamStore {
  using Word = W;
  using Number = BigFloat<W>;
  using Exact = ExactFloat<W>;
  using Transform = BigFloatTransformR<W>;
  using Arena = LinearHeapBuffer;
  using Frame = NullStackFrame;
};

}  // namespace orl
