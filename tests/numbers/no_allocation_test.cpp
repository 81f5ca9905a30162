// The mathematics allocates nothing: every operation of the number objects, on both sides of the thresholds.
#include <gtest/gtest.h>

#include <cstdlib>

#include "multiply/algorithm_table.h"
#include "numbers/transform.h"
#include "support/allocation_counter.h"
#include "support/multiplication.h"
#include "threads/simple_frameworks.h"

namespace orl::test {
namespace {

TEST(AllocationCounter, SeesEveryKindOfAllocation) {
  const auto counted = [](auto&& allocate) {
    const AllocationWatch watch;
    void* volatile p = allocate();
    std::free(p);
    return watch.calls();
  };
  EXPECT_EQ(counted([] { return std::malloc(10); }), 1u);
  EXPECT_EQ(counted([] { return std::calloc(2, 10); }), 1u);
  EXPECT_EQ(counted([] { return std::realloc(nullptr, 10); }), 1u);
#ifndef __SANITIZE_THREAD__
  EXPECT_EQ(counted([] { return std::aligned_alloc(64, 128); }), 1u);
#endif
  const AllocationWatch watch;
  delete new volatile int(3);
  EXPECT_EQ(watch.calls(), 1u);
}

template <class W>
class NoAllocation : public testing::Test {};
using WordTypes = testing::Types<u32, u64>;
TYPED_TEST_SUITE(NoAllocation, WordTypes);

TYPED_TEST(NoAllocation, InAnyOperation) {
  using W = TypeParam;
  const TestTables tables(0xa0000);
  Parallelizer_None none;
  const ParallelContext parallel{none, 7};
  for (const u64 n : {u64{5}, u64{60}, u64{300}, u64{5000}}) {
    std::vector<W> words(8 * (2 * n + 8), W{3});
    const auto buffer = [&](u64 i) { return words.data() + i * (2 * n + 8); };
    const GuardedBlock block(TransformHelper<W>::max_bytes(2 * n + 6, 7, 2));
    const MultiplyContext ctx{parallel, tables, block.buffer()};
    BigFloat<W> a(buffer(0), n), b(buffer(1), n), t(buffer(2), 2 * n + 8);
    ExactFloat<W> x(buffer(3), n), y(buffer(4), n), u(buffer(5), 2 * n + 8), v(buffer(6), 2 * n + 8);
    a.L = b.L = x.L = y.L = n;
    a.sign = x.sign = y.sign = 1;
    b.exp = 2;

    const AllocationWatch watch;
    x.recompute_hash(parallel);
    y.recompute_hash(parallel);
    t.set_mul(n, a, b, ctx);
    t.set_sqr(n, a, ctx);
    t.set_add(n, a, b, parallel);
    t.set_sub(n, a, b, parallel);
    t.set_mul_uW(n, a, 7, parallel);
    t.set_div_sW(n, a, 7, parallel);
    t.mp2(5, parallel);
    u.set_mul(x, y, ctx);
    v.set_sqr(x, ctx);
    u.add_ip(v, parallel);
    u.sub_ip(x, parallel);
    {
      const TransformHelper<W> helper(ctx, 2 * n + 4, 2);
      BigFloatTransformR<W> A, B;
      BigFloatTransformR<W>::mul_rr_xf(helper, t, n, a, b, B);
      BigFloatTransformR<W>::sqr_rx_xf(helper, t, n, a, A, 1);
      BigFloatTransformR<W>::inverse_fmul(helper, t, n, A, B);
    }
    u.set_mul(x, y, ctx);
    EXPECT_TRUE(u.is_consistent(parallel));
    EXPECT_EQ(watch.calls(), 0u) << n << " words";
  }
}

}  // namespace
}  // namespace orl::test
