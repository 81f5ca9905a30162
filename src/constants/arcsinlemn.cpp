#include "constants/arcsinlemn.h"

#include "core/exceptions.h"

namespace orl {
namespace {

constexpr const char* kFunction = "ArcSinlemn_Series_BigFloatR()";

/// n^4, which fits a word of W: that of 64 bits does for n below 2^16, that of 32 bits for n below 2^8.
template <class W>
u64 fourth_power(u64 n, const char* message) {
  if (n >> (2 * sizeof(W)) != 0) throw InvalidParametersException(kFunction, message);
  return n * n * n * n;
}

}  // namespace

template <class W>
TermSeries arcsinlemn_terms(s64 c, u64 x, u64 y) {
  const u64 x4 = fourth_power<W>(x, "x^4 does not fit into a machine word.");
  const u64 y4 = fourth_power<W>(y, "y^4 does not fit into a machine word.");
  if (x == 0 || 4 * x >= 3 * y)
    throw InvalidParametersException(kFunction, "Convergence is too slow: N / D < 0.75");
  const s64 scale = c * static_cast<s64>(x);
  return {.name = "ArcSinlemn",
          .Q = {y4, {{2, 0}, {4, 1}}},
          .R = {x4, {{2, -1}, {4, -3}}},
          .outer = {.P = scale, .Q = scale, .D = y}};
}

template TermSeries arcsinlemn_terms<u32>(s64, u64, u64);
template TermSeries arcsinlemn_terms<u64>(s64, u64, u64);

}  // namespace orl
