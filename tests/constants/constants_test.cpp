// Values of the constants against MPFR, for both word types, at precisions around every change of path.
#include <gtest/gtest.h>
#include <mpfr.h>

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "constants/arccoth.h"
#include "constants/arcsinlemn.h"
#include "constants/e.h"
#include "constants/euler.h"
#include "constants/final_product.h"
#include "constants/lemniscate.h"
#include "constants/log.h"
#include "constants/log_agm_alone.h"
#include "constants/one_series.h"
#include "constants/pi.h"
#include "constants/roots.h"
#include "core/exceptions.h"
#include "functions/function_runner.h"
#include "machin/stored_formulas.h"
#include "support/random_words.h"
#include "support/sanitized.h"

namespace orl {
namespace {

using test::Mpz;

/// floor(value * 2^bits) of what `set` puts into an mpfr number.
template <class Set>
Mpz oracle(u64 bits, Set&& set) {
  mpfr_t x;
  mpfr_init2(x, static_cast<mpfr_prec_t>(bits + 256));
  set(x);
  mpfr_mul_2ui(x, x, bits, MPFR_RNDZ);
  Mpz z;
  mpfr_get_z(z, x, MPFR_RNDD);
  mpfr_clear(x);
  return z;
}

template <class W>
struct Case {
  const char* name;
  std::function<std::unique_ptr<ConstantPlan<W>>(u64 p, u64 tds)> plan;
  std::function<void(mpfr_ptr)> value;
  const char* group = nullptr;  ///< equal for all algorithms of a constant
  u64 most_words = ~u64{0};     ///< beyond which the oracle takes seconds
};

void inverse(mpfr_ptr x) { mpfr_ui_div(x, 1, x, MPFR_RNDN); }
void set_pi(mpfr_ptr x) { mpfr_const_pi(x, MPFR_RNDN); }
void set_e(mpfr_ptr x) {
  mpfr_set_ui(x, 1, MPFR_RNDN);
  mpfr_exp(x, x, MPFR_RNDN);
}
void set_phi(mpfr_ptr x) {
  mpfr_sqrt_ui(x, 5, MPFR_RNDN);
  mpfr_add_ui(x, x, 1, MPFR_RNDN);
  mpfr_div_2ui(x, x, 1, MPFR_RNDN);
}
void set_lemniscate(mpfr_ptr x) {
  mpfr_t agm;
  mpfr_init2(agm, mpfr_get_prec(x));
  mpfr_sqrt_ui(x, 2, MPFR_RNDN);
  mpfr_set_ui(agm, 1, MPFR_RNDN);
  mpfr_agm(agm, agm, x, MPFR_RNDN);
  mpfr_const_pi(x, MPFR_RNDN);
  mpfr_mul_ui(x, x, 2, MPFR_RNDN);
  mpfr_div(x, x, agm, MPFR_RNDN);
  mpfr_clear(agm);
}
/// MPFR takes a second for 1000 words, so one value serves for all.
void set_zeta3(mpfr_ptr x) {
  static const mpfr_srcptr value = [] {
    static mpfr_t zeta;
    mpfr_init2(zeta, 64 * 1000 + 1024);
    mpfr_zeta_ui(zeta, 3, MPFR_RNDN);
    return zeta;
  }();
  mpfr_set(x, value, MPFR_RNDN);
}
void set_catalan(mpfr_ptr x) { mpfr_const_catalan(x, MPFR_RNDN); }
std::function<void(mpfr_ptr)> root_of(u64 n) {
  return [n](mpfr_ptr x) { mpfr_sqrt_ui(x, n, MPFR_RNDN); };
}
std::function<void(mpfr_ptr)> log_of(u64 n) {
  return [n](mpfr_ptr x) { mpfr_log_ui(x, n, MPFR_RNDN); };
}
std::function<void(mpfr_ptr)> inverse_of(std::function<void(mpfr_ptr)> f) {
  return [f](mpfr_ptr x) {
    f(x);
    inverse(x);
  };
}

template <class W>
std::vector<Case<W>> all_cases() {
  std::vector<Case<W>> cases;
  using Store = RamStore<W>;
  const auto pi = [&](const char* name, PiSeries series, s32 power, SeriesMemory memory) {
    cases.push_back({name,
                     [=](u64 p, u64 tds) {
                       return make_pi<Store>({series, power, memory}, p, tds);
                     },
                     power == 1 ? std::function<void(mpfr_ptr)>(set_pi) : inverse_of(set_pi),
                     power == 1 ? "Pi" : nullptr});
  };
  pi("Chudnovsky", PiSeries::kChudnovsky, 1, SeriesMemory::kFast);
  pi("Chudnovsky, 1/Pi", PiSeries::kChudnovsky, -1, SeriesMemory::kFast);
  pi("Chudnovsky, reduced", PiSeries::kChudnovsky, 1, SeriesMemory::kReduced);
  pi("Ramanujan", PiSeries::kRamanujan, 1, SeriesMemory::kFast);
  pi("Ramanujan, 1/Pi", PiSeries::kRamanujan, -1, SeriesMemory::kFast);
  pi("Ramanujan, reduced, 1/Pi", PiSeries::kRamanujan, -1, SeriesMemory::kReduced);
  const auto e = [&](const char* name, ETaylor series, s32 power) {
    cases.push_back({name,
                     [=](u64 p, u64 tds) {
                       return make_e<Store>({series, power}, p, tds);
                     },
                     power == 1 ? std::function<void(mpfr_ptr)>(set_e) : inverse_of(set_e)});
  };
  e("e", ETaylor::kPlain, 1);
  e("e, alternating", ETaylor::kAlternating, 1);
  e("1/e, alternating", ETaylor::kAlternating, -1);
  for (const u64 n : {u64{2}, u64{2000000011}, u64{4294967291}})
    for (const s32 power : {1, -1})
      cases.push_back({"square root",
                       [=](u64 p, u64 tds) {
                         return make_sqrt<Store>({n, power}, p, tds);
                       },
                       power == 1 ? root_of(n) : inverse_of(root_of(n))});
  for (const s32 power : {1, -1})
    cases.push_back({"golden ratio", [=](u64 p, u64 tds) { return make_golden_ratio<Store>(power, p, tds); },
                     power == 1 ? std::function<void(mpfr_ptr)>(set_phi) : inverse_of(set_phi)});
  const auto log = [&](u64 n, const MachinFormula& formula) {
    cases.push_back({"logarithm", [=](u64 p, u64 tds) { return make_log_machin<Store>(n, formula, p, tds); },
                     log_of(n), n == 2 ? "Log(2)" : nullptr});
  };
  // With the smallest n that serves, and with larger ones.
  const auto euler = [&](const char* name, EulerVariant variant, u32 more) {
    cases.push_back({name,
                     [=](u64 p, u64 tds) {
                       const u32 k = euler_exponent(variant, p, 8 * sizeof(W)) + more;
                       return make_euler<Store>({variant, more == 0 ? 0 : k}, p, tds);
                     },
                     [](mpfr_ptr x) { mpfr_const_euler(x, MPFR_RNDN); }, "Euler", 1000});
  };
  euler("Euler, refined", EulerVariant::kRefined, 0);
  euler("Euler, original", EulerVariant::kOriginal, 0);
  euler("Euler, refined, 2 n", EulerVariant::kRefined, 1);
  euler("Euler, original, 4 n", EulerVariant::kOriginal, 2);
  const StoredLogFormulas& two = stored_log_formulas().front();
  log(two.n, two.formulas.primary);
  log(two.n, two.formulas.secondary);
  log(2147483647, {{558, 26}, {-62, 4801}, {248, 8749}, {-2, 4294967295}});
  struct Group {
    const char* name;
    std::function<void(mpfr_ptr)> value;
    u64 most_words;
  };
  const auto group_of = [](OneSeries which) -> Group {
    if (which <= OneSeries::kZeta3Zuniga) return {"Zeta(3)", set_zeta3, 1000};
    if (which == OneSeries::kLog2Zuniga) return {"Log(2)", log_of(2), ~u64{0}};
    return {"Catalan", set_catalan, ~u64{0}};
  };
  for (u32 i = 0; i < kOneSeriesCount; ++i)
    for (const s32 power : {1, -1}) {
      const auto which = static_cast<OneSeries>(i);
      const Group group = group_of(which);
      cases.push_back({one_series_row(which).line,
                       [=](u64 p, u64 tds) { return make_one_series<Store>(which, power, p, tds); },
                       power == 1 ? group.value : inverse_of(group.value), power == 1 ? group.name : nullptr,
                       group.most_words});
    }
  const auto lemniscate = [&](const char* name, LemniscateAlgorithm algorithm, s32 power) {
    cases.push_back({name,
                     [=](u64 p, u64 tds) {
                       return make_lemniscate<Store>({algorithm, power}, p, tds);
                     },
                     power == 1 ? std::function<void(mpfr_ptr)>(set_lemniscate) : inverse_of(set_lemniscate),
                     power == 1 ? "lemniscate" : nullptr});
  };
  lemniscate("lemniscate by AGM", LemniscateAlgorithm::kAgmPi, 1);
  lemniscate("1/lemniscate by AGM", LemniscateAlgorithm::kAgmPi, -1);
  lemniscate("lemniscate, Gauss", LemniscateAlgorithm::kGauss, 1);
  lemniscate("lemniscate, Sebah", LemniscateAlgorithm::kSebah, 1);
  lemniscate("lemniscate", LemniscateAlgorithm::kSingular, 1);
  lemniscate("1/lemniscate", LemniscateAlgorithm::kSingular, -1);
  for (const u64 n : {u64{3}, u64{4294967291}})
    cases.push_back(
        {"logarithm by AGM", [=](u64 p, u64 tds) { return make_log_agm<Store>(n, p, tds); }, log_of(n)});
  return cases;
}

/// floor(value * 2^scale), where half a word lies below the top p words.
struct Scaled {
  Mpz value;
  u64 scale = 0;
};

/// What a plan gives that runs with exactly its memory.
template <class W>
Scaled run(const Case<W>& constant, u64 p, u64 tds, const char* framework) {
  const auto plan = constant.plan(p, tds);
  const Need need = plan->need();
  test::Runner<W> runner(need.table_bits, framework);
  std::vector<W> words(need.out_words + 2, static_cast<W>(0xa5a5a5a5));
  BigFloat<W> out(words.data() + 1, need.out_words);
  runner.run(
      need, tds,
      [&](const RunContext& ctx, LinearHeapBuffer heap) {
        NullStackFrame frame;
        const u64 hash = plan->run(ctx, frame, out, heap);
        EXPECT_EQ(hash_canon(hash), hash_canon(out.computed_hash(ctx.parallel)));
      },
      u64{1} << 17);
  EXPECT_EQ(words.front(), static_cast<W>(0xa5a5a5a5));
  EXPECT_EQ(words.back(), static_cast<W>(0xa5a5a5a5));
  EXPECT_GE(out.L, p);
  EXPECT_LE(out.L, p + 6);
  out.check_normalization();
  constexpr u64 bits = 8 * sizeof(W);
  const u64 scale = static_cast<u64>(static_cast<s64>(p) - out.magnitude()) * bits + bits / 2;
  const s64 shift = out.exp * static_cast<s64>(bits) + static_cast<s64>(scale);
  const Mpz raw(out.T, out.L);
  return {shift >= 0 ? raw << static_cast<u64>(shift) : raw >> static_cast<u64>(-shift), scale};
}

void expect_close(const Mpz& found, const Mpz& expected) {
  const Mpz difference = found - expected;
  EXPECT_LE(mpz_cmpabs_ui(difference, 64), 0) << "off by 2^" << mpz_sizeinbase(difference, 2);
}

/// Compares the top p words: with g guard bits below them floors differ by less than one unit of the p-th word in
/// 2^g / 64.
template <class W>
void check(const Case<W>& constant, u64 p, u64 tds, const char* framework = "none") {
  SCOPED_TRACE(std::string(constant.name) + ", p = " + std::to_string(p) + ", tds = " + std::to_string(tds) +
               ", " + framework + ", " + std::to_string(8 * sizeof(W)) + " bits");
  const Scaled found = run(constant, p, tds, framework);
  expect_close(found.value, oracle(found.scale, constant.value));
}

template <class W>
class Constants : public testing::Test {};
using WordTypes = testing::Types<u32, u64>;
TYPED_TEST_SUITE(Constants, WordTypes);

TYPED_TEST(Constants, HaveTheirTopWordsRightAtSmallPrecisions) {
  for (const auto& constant : all_cases<TypeParam>())
    for (u64 p = 1; p <= 60; p += test::kSanitized ? 7 : 1) check(constant, p, 1);
}

TYPED_TEST(Constants, HaveTheirTopWordsRightAtLargerPrecisions) {
  for (const auto& constant : all_cases<TypeParam>())
    for (const u64 p : {333, 1000, 5000})
      if (p <= (test::kSanitized ? 1000 : constant.most_words)) check(constant, p, p == 1000 ? 3 : 1);
}

// 200,000 digits of each constant by all of its algorithms, which share no terms.
TEST(Algorithms, AgreeWithEachOther) {
  const u64 p = test::kSanitized ? 1500 : 10382;
  std::map<std::string, Scaled> firsts;
  for (const auto& constant : all_cases<u64>()) {
    if (constant.group == nullptr) continue;
    SCOPED_TRACE(std::string(constant.group) + ", " + constant.name);
    const Scaled found = run(constant, p, 1, "none");
    const auto [first, added] = firsts.try_emplace(constant.group, found);
    if (added) continue;
    EXPECT_EQ(found.scale, first->second.scale);
    expect_close(found.value, first->second.value);
  }
}

// Here neither the series nor the root takes as much as the last product.
TEST(PiPlan, HoldsItsLastProduct) {
  const auto plan = make_pi<RamStore<u64>>({PiSeries::kChudnovsky, 1, SeriesMemory::kReduced}, 58932, 1);
  const Need need = plan->need();
  std::vector<u64> words(need.out_words);
  BigFloat<u64> out(words.data(), words.size());
  test::Runner<u64>(need.table_bits).run(need, 1, [&](const RunContext& ctx, LinearHeapBuffer heap) {
    EXPECT_NO_THROW(plan->run(ctx, test::frame, out, heap));
  });
}

TYPED_TEST(Constants, DoNotDependOnTheThreadWidth) {
  const auto cases = all_cases<TypeParam>();
  for (const u64 i : {0, 4, 6, 7, 9, 15, 17, 21})
    for (const u64 tds : {2, 7, 64})
      for (const char* framework : {"pushpool", "spawn"})
        check(cases[i], test::kSanitized ? 1200 : 6000, tds, framework);
}

TYPED_TEST(Constants, RefuseOtherPowers) {
  using Store = RamStore<TypeParam>;
  EXPECT_THROW(make_pi<Store>({PiSeries::kChudnovsky, 2}, 10, 1), InvalidParametersException);
  EXPECT_THROW(make_sqrt<Store>({2, 0}, 10, 1), InvalidParametersException);
  EXPECT_THROW(make_golden_ratio<Store>(3, 10, 1), InvalidParametersException);
  EXPECT_THROW(make_e<Store>({ETaylor::kAlternating, 0}, 10, 1), InvalidParametersException);
  EXPECT_THROW(make_e<Store>({ETaylor::kPlain, -1}, 10, 1), InvalidParametersException);
  EXPECT_THROW(make_sqrt<Store>({0, 1}, 10, 1), ArithmeticException);
  EXPECT_THROW(make_lemniscate<Store>({LemniscateAlgorithm::kGauss, 2}, 10, 1), InvalidParametersException);
}

TYPED_TEST(Constants, RefuseArgumentsThatNoSeriesTakes) {
  using W = TypeParam;
  const auto message_of = [](auto&& make) -> std::string {
    try {
      make();
    } catch (const InvalidParametersException& e) {
      return e.message();
    }
    return "";
  };
  const auto arccoth = [&](u64 x) { return message_of([&] { make_arccoth_series<W>(x, 10); }); };
  EXPECT_EQ(arccoth(1), "Argument is too small.");
  EXPECT_EQ(arccoth(4294967296), "Argument is too large.");
  EXPECT_EQ(arccoth(4294967295), "");
  const auto arcsinlemn = [&](u64 x, u64 y) { return message_of([&] { arcsinlemn_terms<W>(1, x, y); }); };
  const u64 end = sizeof(W) == 8 ? 65536 : 256;
  EXPECT_EQ(arcsinlemn(end, 2 * end), "x^4 does not fit into a machine word.");
  EXPECT_EQ(arcsinlemn(1, end), "y^4 does not fit into a machine word.");
  for (const auto& [x, y] : {std::pair<u64, u64>{3, 4}, {5, 4}, {0, 4}})
    EXPECT_EQ(arcsinlemn(x, y), "Convergence is too slow: N / D < 0.75") << x;
  EXPECT_EQ(arcsinlemn(2, 3), "");
  for (const auto& [algorithm, name] :
       {std::pair{LemniscateAlgorithm::kGauss, "gauss"}, {LemniscateAlgorithm::kSebah, "sebah"}})
    EXPECT_EQ(message_of([&] {
                make_lemniscate<RamStore<W>>({algorithm, -1}, 10, 1);
              }),
              std::string("(Power = -1) is not supported for (Algorithm = ") + name + ").");
}

// From halves, whichever words the operands lack or have too many; with the hash of what comes out.
TYPED_TEST(Constants, LastProductTakesLongAndShortOperands) {
  using W = TypeParam;
  test::Random random;
  SCOPED_TRACE(random.replay());
  for (const u64 p : {u64{12}, u64{300}})
    for (const u64 x_words : {p / 2, p + 3, p + 20})
      for (const u64 y_words : {p / 2, p + 3, p + 20}) {
        SCOPED_TRACE(testing::Message() << p << ": " << x_words << " by " << y_words);
        const FinalProduct<RamStore<W>> plan("test", p, 1);
        const test::OwnedFloat<W> a(random.number<W>(x_words), -1), b(random.number<W>(y_words), -7);
        test::OwnedFloat<W> x(std::max(plan.need().out_words, x_words));
        std::copy_n(a.x.T, a.x.L, x.x.T);
        x.x.L = a.x.L, x.x.exp = a.x.exp, x.x.sign = 1;
        test::Runner<W> runner(plan.need().table_bits);
        test::GuardedHeap heap(plan.need().ram_bytes);
        const RunContext ctx = runner.context(1);
        const u64 hash = plan.run(ctx, test::frame, x.x, a.x.computed_hash(ctx.parallel),
                                  {b.x, b.x.computed_hash(ctx.parallel)}, heap.buffer());
        EXPECT_TRUE(heap.intact());
        EXPECT_EQ(hash_canon(hash), hash_canon(x.x.computed_hash(ctx.parallel)));
        const u64 deep = 2 * p + 50, bits = 8 * sizeof(W);
        const Mpz right = (Mpz(a.x.T, a.x.L) * Mpz(b.x.T, b.x.L)) << ((deep + a.x.exp + b.x.exp) * bits);
        Mpz error = test::scaled(x.x, deep) - right;
        mpz_abs(error, error);
        EXPECT_LE(mpz_cmp(error, right >> ((p + 1) * bits - 3)), 0);
      }
}

}  // namespace
}  // namespace orl
