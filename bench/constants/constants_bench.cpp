// A constant's binary value, stage by stage, and its memory: without conversion and writing.
//
//   constants_bench [CONSTANT [DIGITS [TDS [FRAMEWORK [RUNS]]]]]
//
// CONSTANT is chudnovsky, ramanujan, chudnovsky-reduced, ramanujan-reduced, e, e-alternating, sqrt2, phi,
// zeta3, zeta3-wedeniwski, zeta3-az, catalan, catalan-zuniga, catalan-pilehrood, catalan-guillera, catalan-lupas,
// catalan-huvent, log2, log2-primary, log2-secondary, log2-agm, lemniscate, lemniscate-agm, lemniscate-gauss,
// lemniscate-sebah, gamma or gamma-original.
// Defaults: chudnovsky, 1000000 and 10000000 digits, 1, none, 3. The peer is the same value by MPFR, on one
// thread, for up to 1000000 digits; bench/pi holds the whole program against a GMP program.
#include <mpfr.h>

#include <cmath>
#include <memory>
#include <string>

#include "constants/e.h"
#include "constants/euler.h"
#include "constants/lemniscate.h"
#include "constants/log.h"
#include "constants/log_agm_alone.h"
#include "constants/one_series.h"
#include "constants/pi.h"
#include "constants/roots.h"
#include "core/exceptions.h"
#include "core/status.h"
#include "machin/stored_formulas.h"
#include "multiply/algorithm_table.h"
#include "simd/target.h"
#include "support/measure.h"
#include "threads/frameworks.h"
#include "transforms/registration.h"

namespace orl {
namespace {

std::unique_ptr<ConstantPlan<u64>> make_plan(const std::string& name, u64 p, u64 tds) {
  using Store = RamStore<u64>;
  constexpr auto kReduced = SeriesMemory::kReduced;
  if (name == "chudnovsky") return make_pi<Store>({PiSeries::kChudnovsky}, p, tds);
  if (name == "ramanujan") return make_pi<Store>({PiSeries::kRamanujan}, p, tds);
  if (name == "chudnovsky-reduced") return make_pi<Store>({PiSeries::kChudnovsky, 1, kReduced}, p, tds);
  if (name == "ramanujan-reduced") return make_pi<Store>({PiSeries::kRamanujan, 1, kReduced}, p, tds);
  if (name == "e") return make_e<Store>({ETaylor::kPlain}, p, tds);
  if (name == "e-alternating") return make_e<Store>({ETaylor::kAlternating}, p, tds);
  if (name == "sqrt2") return make_sqrt<Store>({2}, p, tds);
  if (name == "phi") return make_golden_ratio<Store>(1, p, tds);
  if (name == "zeta3") return make_one_series<Store>(OneSeries::kZeta3Zuniga, 1, p, tds);
  if (name == "zeta3-wedeniwski") return make_one_series<Store>(OneSeries::kZeta3Wedeniwski, 1, p, tds);
  if (name == "zeta3-az") return make_one_series<Store>(OneSeries::kZeta3AmdeberhanZeilberger, 1, p, tds);
  if (name == "catalan") return make_one_series<Store>(OneSeries::kCatalanPilehroodShort, 1, p, tds);
  if (name == "catalan-zuniga") return make_one_series<Store>(OneSeries::kCatalanZuniga, 1, p, tds);
  if (name == "catalan-pilehrood") return make_one_series<Store>(OneSeries::kCatalanPilehroodLong, 1, p, tds);
  if (name == "catalan-guillera") return make_one_series<Store>(OneSeries::kCatalanGuillera, 1, p, tds);
  if (name == "catalan-lupas") return make_one_series<Store>(OneSeries::kCatalanLupas, 1, p, tds);
  if (name == "catalan-huvent") return make_one_series<Store>(OneSeries::kCatalanHuvent, 1, p, tds);
  if (name == "log2") return make_one_series<Store>(OneSeries::kLog2Zuniga, 1, p, tds);
  if (name == "lemniscate") return make_lemniscate<Store>({LemniscateAlgorithm::kSingular}, p, tds);
  if (name == "lemniscate-agm") return make_lemniscate<Store>({LemniscateAlgorithm::kAgmPi}, p, tds);
  if (name == "lemniscate-gauss") return make_lemniscate<Store>({LemniscateAlgorithm::kGauss}, p, tds);
  if (name == "lemniscate-sebah") return make_lemniscate<Store>({LemniscateAlgorithm::kSebah}, p, tds);
  if (name == "log2-agm") return make_log_agm<Store>(2, p, tds);
  if (name == "gamma") return make_euler<Store>({}, p, tds);
  if (name == "gamma-original") return make_euler<Store>({EulerVariant::kOriginal}, p, tds);
  const LogFormulas& log2 = stored_log_formulas()[0].formulas;
  if (name == "log2-primary") return make_log_machin<Store>(2, log2.primary, p, tds);
  if (name == "log2-secondary") return make_log_machin<Store>(2, log2.secondary, p, tds);
  std::fprintf(stderr, "constants_bench: unknown constant %s\n", name.c_str());
  std::exit(1);
}

void set_peer(const std::string& name, mpfr_ptr x) {
  if (name.find("chudnovsky") == 0 || name.find("ramanujan") == 0) {
    mpfr_const_pi(x, MPFR_RNDN);
  } else if (name == "sqrt2" || name == "phi") {
    mpfr_sqrt_ui(x, name == "phi" ? 5 : 2, MPFR_RNDN);
  } else if (name.find("log2") == 0) {
    mpfr_const_log2(x, MPFR_RNDN);
  } else if (name.find("gamma") == 0) {
    mpfr_const_euler(x, MPFR_RNDN);
  } else if (name.find("catalan") == 0) {
    mpfr_const_catalan(x, MPFR_RNDN);
  } else if (name.find("lemniscate") == 0) {  // the work of 2 Pi / AGM(1, sqrt(2)), but for a division
    mpfr_sqrt_ui(x, 2, MPFR_RNDN);
    mpfr_t one;
    mpfr_init2(one, mpfr_get_prec(x));
    mpfr_set_ui(one, 1, MPFR_RNDN);
    mpfr_agm(x, x, one, MPFR_RNDN);
    mpfr_const_pi(one, MPFR_RNDN);
    mpfr_clear(one);
  } else {
    mpfr_set_ui(x, 1, MPFR_RNDN);
    mpfr_exp(x, x, MPFR_RNDN);
  }
}

struct Block {
  explicit Block(u64 bytes) : size(bytes), data(std::aligned_alloc(64, (bytes + 127) & ~u64{63})) {}
  ~Block() { std::free(data); }
  LinearHeapBuffer buffer() const { return {data, size}; }
  u64 size;
  void* data;
};

struct Watermark final : CutObserver {
  explicit Watermark(const void* start) : base(static_cast<const u8*>(start)) {}
  void on_cut(const void* begin, u64 bytes) override {
    const u64 end = static_cast<u64>(static_cast<const u8*>(begin) - base) + bytes;
    u64 seen = high.load();
    while (seen < end && !high.compare_exchange_weak(seen, end)) {
    }
  }
  const u8* base;
  std::atomic<u64> high{0};
};

void measure(const std::string& name, u64 digits, u64 tds, const std::string& framework, int runs) {
  const u64 p = static_cast<u64>(static_cast<double>(digits) * std::log2(10.0) / 64) + 2;
  const double planning = bench::now_ns();
  const auto plan = make_plan(name, p, tds);
  const double planned = (bench::now_ns() - planning) / 1e6;
  const Need need = plan->need();
  Block table_block(basic_table<u64>().table_bytes(need.table_bits));
  TransformTables tables(table_block.buffer());
  basic_table<u64>().ensure_tables(tables, need.table_bits);
  Block heap(need.ram_bytes), words(need.out_words * sizeof(u64));
  const auto parallelizer = create_framework(framework);
  parallelizer->reserve();
  BigFloat<u64> out(static_cast<u64*>(words.data), need.out_words);
  Watermark watermark(heap.data);
  set_cut_observer(&watermark);
  std::vector<double> ns;
  for (int run = 0; run < runs; ++run) {
    NullStackFrame frame;
    const double start = bench::now_ns();
    plan->run({{*parallelizer, tds}, tables, silent_status()}, frame, out, heap.buffer());
    ns.push_back(bench::now_ns() - start);
  }
  set_cut_observer(nullptr);
  const bench::Timing t = bench::timing_of(ns);
  std::printf(
      "%-20s %10llu digits  tds %-3llu %-9s %8.3f s (best %.3f)  plan %.1f ms  %.2f bytes/digit, %.2f of it "
      "cut"
      "  tables %.1f MB\n",
      name.c_str(), static_cast<unsigned long long>(digits), static_cast<unsigned long long>(tds),
      framework.c_str(), t.median / 1e9, t.low / 1e9, planned,
      static_cast<double>(need.ram_bytes + need.out_words * 8) / static_cast<double>(digits),
      static_cast<double>(watermark.high) / static_cast<double>(need.ram_bytes),
      static_cast<double>(table_block.size) / 1e6);
  // That of Zeta(3) takes minutes.
  if (digits <= 1000000 && name.find("zeta3") != 0) {
    const double start = bench::now_ns();
    mpfr_t x;
    mpfr_init2(x, static_cast<mpfr_prec_t>(64 * p));
    mpfr_free_cache();
    set_peer(name, x);
    mpfr_clear(x);
    const double peer = bench::now_ns() - start;
    std::printf("%-20s MPFR %.3f s, ratio %.2f\n", "", peer / 1e9, peer / t.low);
  }
  parallelizer->reset();
}

}  // namespace
}  // namespace orl

int main(int argc, char** argv) {
  using namespace orl;
  register_exceptions();
  register_frameworks();
  register_multiplication();
  bench::heading("constants_bench", simd::target_name(simd::active_target()));
  const std::string name = argc > 1 ? argv[1] : "chudnovsky";
  const u64 tds = argc > 3 ? std::strtoull(argv[3], nullptr, 0) : 1;
  const std::string framework = argc > 4 ? argv[4] : "none";
  const int runs = argc > 5 ? std::atoi(argv[5]) : 3;
  std::vector<u64> sizes{1000000, 10000000};
  if (argc > 2) sizes = {std::strtoull(argv[2], nullptr, 0)};
  try {
    for (const u64 digits : sizes) measure(name, digits, tds, framework, runs);
  } catch (const Exception& e) {
    e.print();
    return 1;
  }
}
