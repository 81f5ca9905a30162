// Word arrays of 64-bit words against GMP's mpn functions, in the calling thread: ns per word, and how many
// times GMP's time that is. The hash has no peer there; mpn_mod_1 by a word stands beside it.
//
// words_bench [length in words ...]; every instruction target that the machine runs.
#include <gmp.h>

#include <cstring>

#include "simd/target.h"
#include "support/measure.h"
#include "words/hash.h"
#include "words/words.h"

namespace {

using namespace orl;

void require(bool right, const char* what) {
  if (right) return;
  std::fprintf(stderr, "words_bench: %s differs from GMP\n", what);
  std::exit(1);
}

void print_row(const char* name, u64 L, const bench::Comparison& c) {
  const double n = double(L);
  std::printf("  %-10s %10llu %9.3f %6.1f%% %9.3f %7.2f\n", name, static_cast<unsigned long long>(L),
              c.call.median / n, 100 * c.call.spread, c.peer.median / n, c.ratio);
}

struct Arrays {
  explicit Arrays(u64 L) : a(L), b(L), t(L), expected(L) {
    u64 x = 88172645463325252;
    for (std::vector<u64>* v : {&a, &b})
      for (u64& w : *v) w = x ^= (x ^= (x ^= x << 13) >> 7) << 17;
  }
  std::vector<u64> a, b, t, expected;
};

volatile u64 sink;

void measure(u64 L) {
  Arrays v(L);
  u64* const t = v.t.data();
  u64* const e = v.expected.data();
  const u64 *a = v.a.data(), *b = v.b.data();
  const auto n = static_cast<mp_size_t>(L);
  const u64 w = 0x123456789abcdef1, d = 0x0123456789abcdef;
  const ShoupDivider<u64> divider(d);

  const auto row = [&](const char* name, auto&& ours, auto&& gmp) {
    const u64 out = ours(), gmp_out = gmp();
    require(out == gmp_out && v.t == v.expected, name);
    print_row(name, L, bench::compare([&] { sink = ours(); }, [&] { sink = gmp(); }));
  };
  row(
      "add", [&] { return bp_add(t, a, b, L); }, [&] { return mpn_add_n(e, a, b, n); });
  row(
      "sub", [&] { return bp_sub(t, a, b, L); }, [&] { return mpn_sub_n(e, a, b, n); });
  row(
      "mul_uW", [&] { return bp_mul_uW(t, a, L, w); }, [&] { return mpn_mul_1(e, a, n, w); });
  row(
      "div_np", [&] { return bp_div_np(divider, t, a, L, 0); }, [&] { return mpn_divrem_1(e, 0, a, n, d); });
  row(
      "mod", [&] { return divider.mod(a, L, 0); }, [&] { return mpn_mod_1(a, n, d); });
  const u64 top = a[0] % d;
  row(
      "div_ex", [&] { return bp_div_ex(divider, t, L, top); },
      [&] {
        // GMP extends a dividend of one word below d by n fraction words.
        static std::vector<u64> quotient;
        quotient.resize(L + 1);
        const u64 r = mpn_divrem_1(quotient.data(), n, &top, 1, d);
        std::memcpy(e, quotient.data(), L * sizeof(u64));
        return r;
      });
  require(hash_canon(bp_hash(0, a, L)) == mpn_mod_1(a, n, kHashModulus), "hash");
  print_row("hash", L,
            bench::compare([&] { sink = bp_hash(0, a, L); }, [&] { sink = mpn_mod_1(a, n, kHashModulus); }));
  print_row("hash_base", L,
            bench::compare([&] { sink = bp_hash_base(0, w, a, L); },
                           [&] { sink = mpn_mod_1(a, n, kHashModulus); }));
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<u64> lengths;
  for (int i = 1; i < argc; ++i) lengths.push_back(std::strtoull(argv[i], nullptr, 0));
  if (lengths.empty()) lengths = {2, 4, 8, 16, 32, 64, 256, 1000, 10000, 1000000};
  for (const simd::Target target : {simd::Target::kAvx512, simd::Target::kAvx2, simd::Target::kScalar}) {
    if (target > simd::best_target()) continue;
    simd::set_active_target(target);
    bench::heading("words_bench", simd::target_name(target));
    std::printf("  %-10s %10s %9s %7s %9s %7s\n", "", "words", "ns/word", "spread", "GMP", "ratio");
    for (const u64 L : lengths)
      if (L > 0) measure(L);
    std::printf("\n");
  }
}
