// The operations of lanes.h in the open region.
namespace orl::test::SIMD_ISA {
namespace {

using simd::SIMD_ISA::F64;
using simd::SIMD_ISA::U64;

template <class V, class T, class Op>
void each_vector(const T* a, const T* b, const T* c, T* out, Op op) {
  for (int i = 0; i < 8; i += V::lanes) op(V::load(a + i), V::load(b + i), V::load(c + i)).store(out + i);
}

#define DOUBLES(name, expression)                                                                  \
  {                                                                                                \
    name, [](const double* p, const double* q, const double* r, double* out) {                     \
      each_vector<F64>(p, q, r, out,                                                               \
                       [](F64 a, F64 b, F64 c) { return (void)a, (void)b, (void)c, expression; }); \
    }                                                                                              \
  }
#define WORDS(name, expression)                                                                            \
  {                                                                                                        \
    name, [](const std::uint64_t* p, const std::uint64_t* q, const std::uint64_t* r, std::uint64_t* out) { \
      each_vector<U64>(p, q, r, out,                                                                       \
                       [](U64 a, U64 b, U64 c) { return (void)a, (void)b, (void)c, expression; });         \
    }                                                                                                      \
  }

using namespace simd::SIMD_ISA;

constexpr LaneOperation<double> kDoubleOperations[] = {DOUBLES("+", a + b),
                                                       DOUBLES("-", a - b),
                                                       DOUBLES("*", a* b),
                                                       DOUBLES("/", a / b),
                                                       DOUBLES("fma", fma(a, b, c)),
                                                       DOUBLES("fms", fms(a, b, c)),
                                                       DOUBLES("fnma", fnma(a, b, c)),
                                                       DOUBLES("max", max(a, b)),
                                                       DOUBLES("abs", abs(a)),
                                                       DOUBLES("max_abs", max_abs(a, b)),
                                                       DOUBLES("bits", as_doubles(as_bits(a)))};
constexpr LaneOperation<std::uint64_t> kWordOperations[] = {
    WORDS("+", a + b),
    WORDS("-", a - b),
    WORDS("&", a& b),
    WORDS("|", a | b),
    WORDS("shl", a.shl(13)),
    WORDS("shr", a.shr(13)),
    WORDS("shl by lanes", a.shl(b& U64::all(127))),
    WORDS("shr by lanes", a.shr(b& U64::all(127))),
    WORDS("mul_low", U64::mul_low(a, b)),
    WORDS("min_halves", U64::min_halves(a, b)),
    WORDS("sub_where less", U64::sub_where(U64::less(a, b), a, c)),
    WORDS("sub_where equal", U64::sub_where(U64::equal(a, b), a, c)),
    WORDS("or_of_lanes", U64::all(or_of_lanes(a) ? 1 : 0))};

}  // namespace

// Plain data: library code must not be compiled in a region.
extern const LaneOperations lane_operations;
constinit const LaneOperations lane_operations{kDoubleOperations, kWordOperations};

}  // namespace orl::test::SIMD_ISA
