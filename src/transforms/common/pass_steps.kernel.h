// Steps that the passes of several families are made of, in the open region; V is a vector of it. Included once per
// instruction set, before the passes; no include guard.
namespace orl::SIMD_ISA {
namespace {

#define PASS_INLINE inline __attribute__((always_inline))

template <u32 Levels, u32 Level, class V, class Body>
PASS_INLINE void for_butterflies(V (&v)[1u << Levels], Body&& body) {
  constexpr u32 kNodes = 1u << Level, kHalf = 1u << (Levels - Level - 1);
#pragma GCC unroll 8
  for (u32 b = 0; b < kNodes; ++b) {
#pragma GCC unroll 8
    for (u32 j = 0; j < kHalf; ++j) body(v[2 * b * kHalf + j], v[(2 * b + 1) * kHalf + j], kNodes + b);
  }
}

/// The butterflies of a tree over 2^Levels values in registers, from the top level down: body(low, high, i) for each
/// pair of values. i is where the factor of their node stands: 2^Level + b for node b of a level.
template <u32 Levels, u32 Level = 0, class V, class Body>
PASS_INLINE void for_levels_down(V (&v)[1u << Levels], Body&& body) {
  if constexpr (Level < Levels) {
    for_butterflies<Levels, Level>(v, body);
    for_levels_down<Levels, Level + 1>(v, body);
  }
}
/// And from the lowest level up, with after(s) behind the s-th of them.
template <u32 Levels, u32 Done = 0, class V, class Body, class After>
PASS_INLINE void for_levels_up(V (&v)[1u << Levels], Body&& body, After&& after) {
  if constexpr (Done < Levels) {
    for_butterflies<Levels, Levels - 1 - Done>(v, body);
    after(Done);
    for_levels_up<Levels, Done + 1>(v, body, after);
  }
}

/// As many rows of eight values as a vector has lanes, each in 8 / lanes vectors, become eight vectors with a row in
/// each lane. load(row, part) is a vector of a row.
template <class V, class Load>
PASS_INLINE void rows_to_lanes(V (&v)[8], Load&& load) {
  for (u32 part = 0; part < 8 / V::lanes; ++part) {
    V t[V::lanes];
    for (u32 row = 0; row < V::lanes; ++row) t[row] = load(row, part);
    transpose(t);
    for (u32 i = 0; i < V::lanes; ++i) v[part * V::lanes + i] = t[i];
  }
}
/// And back: store(row, part, vector) takes what load gave.
template <class V, class Store>
PASS_INLINE void lanes_to_rows(const V (&v)[8], Store&& store) {
  for (u32 part = 0; part < 8 / V::lanes; ++part) {
    V t[V::lanes];
    for (u32 i = 0; i < V::lanes; ++i) t[i] = v[part * V::lanes + i];
    transpose(t);
    for (u32 row = 0; row < V::lanes; ++row) store(row, part, t[row]);
  }
}

/// Calls body with `value` as a constant. It must be one of Values.
template <u32... Values, class Body>
PASS_INLINE void with_constant(u32 value, Body&& body) {
  [[maybe_unused]] const bool known =
      ((value == Values && (body(std::integral_constant<u32, Values>()), true)) || ...);
}

}  // namespace
}  // namespace orl::SIMD_ISA
