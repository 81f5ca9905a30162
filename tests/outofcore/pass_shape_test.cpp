// The arithmetic of passes: what plans cut fits the memory, keeps pieces long and leaves no column out.
#include "outofcore/pass_shape.h"

#include <gtest/gtest.h>

namespace orl {
namespace {

constexpr u64 kMiB = u64{1} << 20, kGiB = u64{1} << 30;

// Sizes like those of residues modulo primes below 2^48, and like those of a family whose primes go together.
class SizedFamily final : public FarFamily {
 public:
  explicit SizedFamily(bool together = false) : together_(together) {}
  const char* id() const override { return "sized"; }
  u64 max_bits() const override { return ~u64{0}; }
  u32 least_primes() const override { return 4; }
  u32 most_primes() const override { return 9; }
  bool holds(const FarShape&) const override { return true; }
  u64 point_bytes(const FarShape& shape) const override { return 3 * (u64{shape.P} - 1); }
  u32 channels(const FarShape& shape) const override { return together_ ? 1 : shape.P; }
  u64 packed_bytes(const FarShape& shape) const override { return together_ ? 6 * shape.P : 6; }
  u64 table_bytes(const FarShape&) const override { return 0; }
  u64 node_bytes(const FarShape& shape, u32 levels) const override {
    return unpacked(shape) << (shape.n - levels);
  }
  u64 stripe_bytes(const FarShape& shape, const FarStripe& stripe) const override {
    return unpacked(shape) * stripe.rows(shape) * stripe.width;
  }
  u64 runs_bytes(const FarShape& shape, u32 levels) const override { return u64{300 * shape.k} << levels; }
  u64 node_scratch_bytes(const FarShape&, u32, u64 tasks) const override { return tasks * 65536; }
  u64 stripe_scratch_bytes(const FarShape&, u32, u64 tasks) const override { return tasks * 65536; }
  double cost(const FarShape& shape) const override { return static_cast<double>(shape.points()); }
  std::unique_ptr<FarTransform> make(const FarShape&, ProductRing, LinearHeapBuffer&) const override {
    return {};
  }

 private:
  u64 unpacked(const FarShape& shape) const { return together_ ? 8 * shape.P : 8; }
  bool together_;
};

void check_stripes(const Stripes& stripes, u64 columns, u64 piece_bytes, u64 bytes_per_seek) {
  EXPECT_EQ(stripes.begin(0), 0u);
  EXPECT_EQ(stripes.begin(stripes.count), columns);
  for (u64 i = 0; i < stripes.count; i++) {
    EXPECT_GE(stripes.width(i), stripes.least());
    EXPECT_LE(stripes.width(i), stripes.most());
  }
  EXPECT_EQ(stripes.begin(1) % 64, 0u);
  EXPECT_EQ(stripes.begin(1) * piece_bytes % 4096, 0u);
  EXPECT_GE(stripes.least() * piece_bytes, bytes_per_seek);
}

void check_shape(const PassShape& shape, const PassLimits& limits) {
  SCOPED_TRACE("n " + std::to_string(shape.shape.n) + ", levels " + std::to_string(shape.levels) + " and " +
               std::to_string(shape.inner_levels));
  EXPECT_LE(shape.memory_bytes, limits.memory_bytes);
  check_stripes(shape.forward, shape.columns(), shape.packed_bytes, limits.bytes_per_seek);
  check_stripes(shape.back, shape.columns(), shape.packed_bytes, limits.bytes_per_seek);
  if (shape.inner_levels != 0)
    check_stripes(shape.inner, shape.row_points(), shape.packed_bytes, limits.bytes_per_seek);
  const u64 points = shape.pieces() * shape.back.most();
  EXPECT_LE(points * (shape.point_bytes + (shape.channels + shape.ahead) * shape.packed_bytes),
            limits.memory_bytes);
  EXPECT_LE(2 * shape.batch * shape.node_bytes, limits.memory_bytes);
  EXPECT_EQ(shape.rows() * shape.inner_rows() % shape.batch, 0u);
  EXPECT_EQ(shape.row_offset(shape.channels, 0), shape.residue_bytes());
  EXPECT_EQ(shape.row_offset(0, shape.pieces() * shape.inner_rows()), shape.row_offset(1, 0));
}

TEST(PassShape, EveryPassFitsAndEveryColumnIsInAStripe) {
  for (const bool together : {false, true})
    for (const FarShape shape : {FarShape{9, 1, 16}, {9, 3, 17}, {7, 5, 15}, {4, 7, 18}, {9, 3, 25}})
      for (const u64 memory : {kMiB, 3 * kMiB, 16 * kMiB, 256 * kMiB})
        for (const u64 seek : {u64{4096}, u64{50000}, kMiB})
          for (const u64 row : {u64{4096}, u64{786432}}) {
            const SizedFamily family(together);
            const PassLimits limits{memory, seek, row, 2};
            if (const auto two = plan_two_passes(family, shape, limits)) check_shape(*two, limits);
            if (const auto three = plan_three_passes(family, shape, limits)) check_shape(*three, limits);
          }
}

TEST(PassShape, RegimesAreWhereTheArithmeticPutsThem) {
  const SizedFamily family;
  const auto limits = [](u64 memory) { return PassLimits{memory * 7 / 8, kMiB, 512 * 1024, 2}; };
  // 8 GiB of product in 1 GiB: two passes; in 256 MiB: three. 2 GiB in 256 MiB: two.
  EXPECT_TRUE(plan_two_passes(family, {9, 3, 27}, limits(kGiB)));
  EXPECT_FALSE(plan_two_passes(family, {9, 3, 27}, limits(256 * kMiB)));
  EXPECT_TRUE(plan_three_passes(family, {9, 3, 27}, limits(256 * kMiB)));
  EXPECT_TRUE(plan_two_passes(family, {9, 3, 25}, limits(256 * kMiB)));
  EXPECT_FALSE(plan_two_passes(family, {9, 1, 40}, limits(kGiB)));
}

TEST(PassShape, TrafficIsThatOfTheModel) {
  const SizedFamily family;
  const PassLimits limits{256 * kMiB, kMiB, 4096, 2};
  const auto two = plan_two_passes(family, {9, 3, 25}, limits);
  const auto three = plan_three_passes(family, {9, 3, 25}, limits);
  ASSERT_TRUE(two && three);
  const u64 S = two->word_bytes();
  const auto moved = [&](const PassShape& shape, u64 operands) {
    const PassTraffic traffic = pass_traffic(shape, operands, operands * S / 2, S);
    return static_cast<double>(traffic.loaded_bytes + traffic.stored_bytes) / static_cast<double>(S);
  };
  EXPECT_DOUBLE_EQ(moved(*two, 2), 15.5);
  EXPECT_DOUBLE_EQ(moved(*two, 1), 10.5);
  EXPECT_DOUBLE_EQ(moved(*three, 2), 29);
  EXPECT_DOUBLE_EQ(moved(*three, 1), 19.5);
  EXPECT_EQ(pass_traffic(*two, 2, S, S).disk_bytes, S * 9 / 2);
}

}  // namespace
}  // namespace orl
