#include "splitting/verify.h"

#include "core/exceptions.h"
#include "core/status.h"

namespace orl {
namespace {

// Numbers shorter than this are hashed one after the other.
constexpr u64 kTogetherWords = 10000;

[[noreturn]] void fail(u64 a, u64 b, u64 first, u64 second, StatusNode& status) {
  status.println("BSR Merge Failure: " + std::to_string(a) + " : " + std::to_string(b), 'R');
  throw BSRModularCheckFailedException("orc_Verify_BSR()", "Modular Redundancy Check Failed", a, b,
                                       {hash_canon(first), hash_canon(second)});
}

}  // namespace

template <class W>
void orc_Verify_BSR(const ExactFloat<W>& A, const ExactFloat<W>& B, u64 a, u64 b, const RunContext& ctx) {
  const u64 share = ctx.parallel.tds > 0 ? (ctx.parallel.tds - 1) / 2 + 1 : 1;
  const ParallelContext parallel = ctx.parallel.with_tds(share);
  u64 difference[2];
  if (A.L < kTogetherWords || ctx.parallel.tds < 2) {
    difference[0] = A.check_hash(parallel);
    difference[1] = B.check_hash(parallel);
  } else {
    fork_range(ctx.parallel.parallelizer, 0, 2,
               [&](u64 i) { difference[i] = (i == 0 ? A : B).check_hash(parallel); });
  }
  if (hash_canon(difference[0]) != 0 || hash_canon(difference[1]) != 0)
    fail(a, b, difference[0], difference[1], ctx.status);
}

template <class W>
void verify_node(const SeriesNode<W>& node, u64 a, u64 b, const RunContext& ctx) {
  static const ExactFloat<W> none;
  for (u32 i = 0; i < node.count; i += 2)
    orc_Verify_BSR(node[i], i + 1 < node.count ? node[i + 1] : none, a, b, ctx);
}

template void orc_Verify_BSR(const ExactFloat<u32>&, const ExactFloat<u32>&, u64, u64, const RunContext&);
template void orc_Verify_BSR(const ExactFloat<u64>&, const ExactFloat<u64>&, u64, u64, const RunContext&);
template void verify_node(const SeriesNode<u32>&, u64, u64, const RunContext&);
template void verify_node(const SeriesNode<u64>&, u64, u64, const RunContext&);

}  // namespace orl
