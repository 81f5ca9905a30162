#include "splitting/merge.h"

#include "splitting/exact_steps.h"
#include "splitting/verify.h"

namespace orl {

template <class W>
void show_node(const char* site, const SeriesNode<W>& node) {
  for (const ExactFloat<W>& x : node) show_fault_point(site, x);
}

template <class W>
void merge_nodes(const Series<W>& series, const TermRange& range, u64 m, const RunContext& ctx,
                 SeriesNode<W>& left, SeriesNode<W>& right, LinearHeapBuffer scratch) {
  show_node("merge operand", left);
  show_node("merge operand", right);
  series.kind().merge(ctx, series.subtracts(range.a, m), left, right, scratch);
  show_node("merge result", left);
  verify_node(left, range.a, range.b, ctx);
}

#define ORVANE_INSTANTIATE(W)                                                                           \
  template void merge_nodes(const Series<W>&, const TermRange&, u64, const RunContext&, SeriesNode<W>&, \
                            SeriesNode<W>&, LinearHeapBuffer);                                          \
  template void show_node(const char*, const SeriesNode<W>&);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
