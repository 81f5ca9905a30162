#include "functions/proved.h"

#include "core/exceptions.h"
#include "words/hash.h"

namespace orl {
namespace {

template <class W>
u64 hash_of(const BigFloat<W>& x, const RunContext& ctx) {
  return hash_canon(x.computed_hash(ctx.parallel));
}

}  // namespace

template <class Store>
ProvedInvsqrtWord<Store>::ProvedInvsqrtWord(u64 p, u64 tds)
    : root_(p, tds),
      residual_(Residual<W>::Of::kInverseRoot, p, tds),
      need_(Need::max(root_.need(), residual_.need())) {}

template <class Store>
u64 ProvedInvsqrtWord<Store>::run(const RunContext& ctx, Number& out, W w, Arena heap) const {
  root_.run(ctx, out, w, heap);
  const u64 hash = hash_of(out, ctx);
  residual_.check_inverse_root(ctx, out, w, heap);
  return hash;
}

template <class Store>
ProvedDivision<Store>::ProvedDivision(u64 p, u64 tds, DivisionMemory memory)
    : division_(p, tds, memory),
      residual_(Residual<W>::Of::kQuotient, p, tds),
      need_(Need::max(division_.need(), residual_.need())) {}

template <class Store>
u64 ProvedDivision<Store>::run(const RunContext& ctx, Frame& frame, Number& out, const Number& a,
                               const Number& b, Arena heap) const {
  const u64 a_hash = hash_of(a, ctx), b_hash = hash_of(b, ctx);
  division_.run(ctx, frame, out, a, b, heap);
  const u64 hash = hash_of(out, ctx);
  residual_.check_quotient(ctx, out, a, b, heap);
  if (hash_of(a, ctx) != a_hash || hash_of(b, ctx) != b_hash)
    throw AlgorithmFailedException("Division_BigFloatR<wtype>::run()", "Checksum Mismatch. Division failed.");
  return hash;
}

template class ProvedInvsqrtWord<RamStore<u32>>;
template class ProvedInvsqrtWord<RamStore<u64>>;
template class ProvedDivision<RamStore<u32>>;
template class ProvedDivision<RamStore<u64>>;

}  // namespace orl
