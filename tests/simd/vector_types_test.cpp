// Every operation of the vector types gives in each instruction set, bit for bit, what plain code gives.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <map>
#include <string>

#include "simd/lanes.h"
#include "support/random_words.h"
#include "support/targets.h"

namespace orl::test {
namespace scalar {
extern const LaneOperations lane_operations;
}
namespace avx2 {
extern const LaneOperations lane_operations;
}
namespace avx512 {
extern const LaneOperations lane_operations;
}
namespace {

template <class T>
using Plain = std::function<T(T, T, T)>;

const std::map<std::string, Plain<double>> kDoubles = {
    {"+", [](double a, double b, double) { return a + b; }},
    {"-", [](double a, double b, double) { return a - b; }},
    {"*", [](double a, double b, double) { return a * b; }},
    {"/", [](double a, double b, double) { return a / b; }},
    {"fma", [](double a, double b, double c) { return std::fma(a, b, c); }},
    {"fms", [](double a, double b, double c) { return std::fma(a, b, -c); }},
    {"fnma", [](double a, double b, double c) { return std::fma(-a, b, c); }},
    {"max", [](double a, double b, double) { return std::fmax(a, b); }},
    {"abs", [](double a, double, double) { return std::fabs(a); }},
    {"max_abs", [](double a, double b, double) { return std::fmax(std::fabs(a), std::fabs(b)); }},
    {"bits", [](double a, double, double) { return a; }},
};

u64 shifted(u64 a, u64 by, bool up) { return by >= 64 ? 0 : up ? a << by : a >> by; }
u64 least_halves(u64 a, u64 b) {
  const u64 top = std::min(a >> 32, b >> 32), low = std::min<u32>(static_cast<u32>(a), static_cast<u32>(b));
  return top << 32 | low;
}

const std::map<std::string, Plain<u64>> kWords = {
    {"+", [](u64 a, u64 b, u64) { return a + b; }},
    {"-", [](u64 a, u64 b, u64) { return a - b; }},
    {"&", [](u64 a, u64 b, u64) { return a & b; }},
    {"|", [](u64 a, u64 b, u64) { return a | b; }},
    {"shl", [](u64 a, u64, u64) { return a << 13; }},
    {"shr", [](u64 a, u64, u64) { return a >> 13; }},
    {"shl by lanes", [](u64 a, u64 b, u64) { return shifted(a, b & 127, true); }},
    {"shr by lanes", [](u64 a, u64 b, u64) { return shifted(a, b & 127, false); }},
    {"mul_low", [](u64 a, u64 b, u64) { return (a & 0xffffffff) * (b & 0xffffffff); }},
    {"min_halves", [](u64 a, u64 b, u64) { return least_halves(a, b); }},
    {"sub_where less", [](u64 a, u64 b, u64 c) { return a < b ? a - c : a; }},
    {"sub_where equal", [](u64 a, u64 b, u64 c) { return a == b ? a - c : a; }},
    {"or_of_lanes", [](u64 a, u64, u64) { return a ? u64{1} : u64{0}; }},
};

template <class T, class Make>
void expect_plain(std::span<const LaneOperation<T>> operations, const std::map<std::string, Plain<T>>& plain,
                  Make&& make) {
  ASSERT_EQ(operations.size(), plain.size());
  for (const LaneOperation<T>& operation : operations)
    for (int round = 0; round < 200; ++round) {
      T a[8], b[8], c[8], out[8];
      for (int i = 0; i < 8; ++i) a[i] = make(), b[i] = make(), c[i] = make();
      if (round % 2) std::copy(a, a + 4, b);
      operation.run(a, b, c, out);
      for (int i = 0; i < 8; ++i) {
        const T right = plain.at(operation.name)(a[i], b[i], c[i]);
        ASSERT_EQ(std::memcmp(&out[i], &right, sizeof right), 0) << operation.name << ", lane " << i;
      }
    }
}

class VectorTypes : public OnTarget {};
INSTANTIATE_TEST_SUITE_P(Targets, VectorTypes, every_target(), target_label);

TEST_P(VectorTypes, EqualPlainCodeBitForBit) {
  Random random;
  const LaneOperations& all = GetParam() == simd::Target::kScalar ? scalar::lane_operations
                              : GetParam() == simd::Target::kAvx2 ? avx2::lane_operations
                                                                  : avx512::lane_operations;
  expect_plain<double>(all.doubles, kDoubles, [&] {
    const double magnitude = std::ldexp(1.0 + static_cast<double>(random.next() >> 12), -20);
    return random.coin() ? magnitude : -magnitude;
  });
  expect_plain<u64>(all.words, kWords, [&] { return random.edge_word<u64>() | 1; });
}

}  // namespace
}  // namespace orl::test
