// Division, square root and radix conversion against GMP's mpf_div, mpf_sqrt_ui and mpf_get_str; the
// arithmetic-geometric mean and the logarithm by it against MPFR's mpfr_agm and mpfr_log.
//
//   functions_bench [-TD:tasks] [-PF:framework] [digits ...]     1,000,000 and 10,000,000 digits by default
//
// Seconds (medians of paired runs), spread, and how many times as long GMP takes; bytes per digit of the
// plan. The proof of the conversion has no peer and stands beside the same mpf_get_str. GMP runs on one
// thread always.
#include <gmp.h>
#include <mpfr.h>

#include <cmath>
#include <cstring>
#include <memory>

#include "core/status.h"
#include "functions/log_agm.h"
#include "functions/proved.h"
#include "functions/radix_conversion.h"
#include "multiply/algorithm_table.h"
#include "multiply/ring_check.h"
#include "simd/target.h"
#include "support/measure.h"
#include "threads/frameworks.h"
#include "transforms/registration.h"

namespace {

using namespace orl;

struct Memory {
  explicit Memory(u64 bytes) : size((bytes + 64) & ~u64{63}), data(std::aligned_alloc(64, size)) {
    std::memset(data, 1, size);
  }
  Memory(const Memory&) = delete;
  ~Memory() { std::free(data); }
  LinearHeapBuffer buffer() const { return {data, size}; }
  u64 size;
  void* data;
};

struct Options {
  u64 tds = 1;
  std::string framework = "none";
  std::vector<u64> digits;
};

void require(bool right, const char* what) {
  if (right) return;
  std::fprintf(stderr, "functions_bench: %s differs from GMP\n", what);
  std::exit(1);
}

class Bench {
 public:
  Bench(u64 digits, const Options& options)
      : digits_(digits),
        words_(static_cast<u64>(static_cast<double>(digits) * std::log2(10.0) / 64) + 2),
        digit_words_((digits + 18) / 19),
        division_(words_, options.tds),
        root_(words_, options.tds),
        conversion_(ConvertPlanP<u64>::make(kDecimalRadix<u64>, digit_words_, options.tds)),
        proof_(kDecimalRadix<u64>, digit_words_, options.tds),
        need_(Need::max(Need::max(division_.need(), root_.need()),
                        Need::max(conversion_.need(), proof_.need()))),
        heap_(need_.ram_bytes),
        table_memory_(basic_table<u64>().table_bytes(need_.table_bits)),
        tables_(table_memory_.buffer()),
        framework_(create_framework(options.framework)),
        ctx_{{*framework_, options.tds}, tables_, silent_status()} {
    basic_table<u64>().ensure_tables(tables_, need_.table_bits);
    mpf_set_default_prec(words_ * 64);
  }

  void run() {
    divide();
    take_root();
    convert();
    prove();
    take_means();
  }

 private:
  template <class Ours, class Peer>
  void row(const char* name, const Need& need, Ours&& ours, Peer&& peer) {
    const bench::Comparison c = bench::compare(ours, peer, 2e8, digits_ > 3000000 ? 5 : 9);
    std::printf("%12llu  %-10s %9.4f %6.1f%% %9.4f %6.2f  %6.1f\n", static_cast<unsigned long long>(digits_),
                name, c.call.median * 1e-9, 100 * c.call.spread, c.peer.median * 1e-9, c.ratio,
                static_cast<double>(need.ram_bytes) / static_cast<double>(digits_));
    std::fflush(stdout);
  }

  // The top words of a positive number near 1 must agree with the float's; its lowest few may differ.
  static bool agree(const BigFloat<u64>& x, mpf_srcptr y, u64 words) {
    const mp_ptr top = y->_mp_d + y->_mp_size;
    for (u64 i = 1; i <= words && i <= x.L; ++i)
      if (x.T[x.L - i] != top[-static_cast<s64>(i)]) return false;
    return true;
  }

  void divide() {
    mpf_t a, b, q;
    mpf_inits(a, b, q, nullptr);
    mpf_sqrt_ui(a, 3);
    mpf_sqrt_ui(b, 10005);
    std::vector<u64> out_words(division_.need().out_words);
    BigFloat<u64> out(out_words.data(), out_words.size());
    const BigFloat<u64> x = view(a), y = view(b);
    const auto ours = [&] { division_.run(ctx_, frame_, out, x, y, heap_.buffer()); };
    const auto peer = [&] { mpf_div(q, a, b); };
    ours();
    peer();
    require(agree(out, q, words_ - 2), "division");
    row("division", division_.need(), ours, peer);
    mpf_clears(a, b, q, nullptr);
  }

  void take_root() {
    mpf_t s;
    mpf_init(s);
    std::vector<u64> out_words(root_.need().out_words);
    BigFloat<u64> out(out_words.data(), out_words.size());
    row(
        "1/sqrt", root_.need(), [&] { root_.run(ctx_, frame_, out, 10005, heap_.buffer()); },
        [&] { mpf_sqrt_ui(s, 10005); });
    mpf_clear(s);
  }

  void convert() {
    mpf_t s;
    mpf_init(s);
    mpf_sqrt_ui(s, 10005);
    const BigFloat<u64> x = view(s);
    std::vector<u64> out(digit_words_);
    std::unique_ptr<char[]> text(new char[digits_ + 16]);
    mp_exp_t exponent;
    const auto ours = [&] { conversion_.run(ctx_, frame_, out.data(), x, heap_.buffer()); };
    const auto peer = [&] { mpf_get_str(text.get(), &exponent, 10, digits_, s); };
    ours();
    peer();
    for (u64 i = 0; i + 2 < digit_words_; ++i) {
      u64 word = 0;
      for (u64 j = 0; j < 19; ++j) word = 10 * word + static_cast<u64>(text[exponent + 19 * i + j] - '0');
      require(word == out[digit_words_ - 1 - i], "conversion");
    }
    row("conversion", conversion_.need(), ours, peer);
    row(
        "proof", proof_.need(),
        [&] { require(proof_.run(ctx_, frame_, out.data(), x, heap_.buffer()).ok, "proof"); }, peer);
    mpf_clear(s);
  }

  // Proved against bare: sqrt(3) by sqrt(10005), their quotient, roots of sqrt(3).
  void prove() {
    mpf_t a, b;
    mpf_inits(a, b, nullptr);
    mpf_sqrt_ui(a, 3);
    mpf_sqrt_ui(b, 10005);
    const u64 p = words_;
    BigFloat<u64> x = view(a), y = view(b);
    x.truncate(p), y.truncate(p);
    const Hashed<BigFloat<u64>> hx{x, x.computed_hash(ctx_.parallel)}, hy{y, y.computed_hash(ctx_.parallel)};
    using Store = RamStore<u64>;
    const u64 tds = ctx_.parallel.tds;
    const ProvedProduct<Store> product(p, tds);
    const ProvedDivision<Store> division(p, tds);
    const ProvedSqrtFloat<Store> root(p, tds);
    const ProvedInvsqrtFloat<Store> inverse(p, tds);
    const InvsqrtFloat_BigFloatR<u64> bare(p, tds);
    const Need need =
        Need::max(Need::max(product.need(), division.need()), Need::max(root.need(), inverse.need()));
    const Memory heap(std::max(need.ram_bytes, BigFloat<u64>::mul_scratch(p, tds))),
        tables_of(basic_table<u64>().table_bytes(need.table_bits));
    TransformTables tables(tables_of.buffer());
    basic_table<u64>().ensure_tables(tables, need.table_bits);
    const RunContext ctx{ctx_.parallel, tables, silent_status()};
    std::vector<u64> out_words(p + 8);
    BigFloat<u64> out(out_words.data(), out_words.size());
    const auto multiply = [&] { out.set_mul(p, x, y, ctx.multiply(heap.buffer())); };
    const auto bare_root = [&] { bare.run(ctx, frame_, out, x, heap.buffer()); };
    row("product", product.need(), multiply, [&] { product.run(ctx, frame_, out, hx, hy, heap.buffer()); });
    row(
        "quotient", division.need(), [&] { division_.run(ctx, frame_, out, x, y, heap.buffer()); },
        [&] { division.run(ctx, frame_, out, hx, hy, heap.buffer()); });
    row("sqrt", root.need(), bare_root, [&] { root.run(ctx, frame_, out, hx, heap.buffer()); });
    row("1/sqrt(a)", inverse.need(), bare_root, [&] { inverse.run(ctx, frame_, out, hx, heap.buffer()); });
    row("ring check", Need(), multiply, [&] {
      multiply();
      const u32* const words = reinterpret_cast<const u32*>(x.T);
      RingCheck check(2 * p);
      for (int i = 0; i < 3; ++i) check.take(words, 2 * x.L, ctx.parallel);
    });
    mpf_clears(a, b, nullptr);
  }

  // AGM(1, sqrt(2)) and ln sqrt(2), proved, beside MPFR's.
  void take_means() {
    const u64 p = words_, tds = ctx_.parallel.tds;
    const AGM1<RamStore<u64>> agm(p, tds);
    const Log_AGM<RamStore<u64>> log(p, tds);
    const Need need = Need::max(agm.need(), log.need());
    const Memory heap(need.ram_bytes), tables_of(basic_table<u64>().table_bytes(need.table_bits));
    TransformTables tables(tables_of.buffer());
    basic_table<u64>().ensure_tables(tables, need.table_bits);
    const RunContext ctx{ctx_.parallel, tables, silent_status()};
    std::vector<u64> out_words(need.out_words);
    BigFloat<u64> out(out_words.data(), out_words.size());

    const mpfr_prec_t bits = static_cast<mpfr_prec_t>(log.operand_words() + 1) * 64;
    mpfr_t x, pi, log2, one, right;
    mpfr_inits2(bits, x, pi, log2, one, right, nullptr);
    mpfr_set_ui(one, 1, MPFR_RNDN);
    mpfr_sqrt_ui(x, 2, MPFR_RNDN);
    mpfr_const_pi(pi, MPFR_RNDN);
    mpfr_const_log2(log2, MPFR_RNDN);
    const auto hashed = [&](const BigFloat<u64>& a) {
      return Hashed<BigFloat<u64>>{a, a.computed_hash(ctx.parallel)};
    };
    mpf_t x_words, pi_words, log2_words, right_words;
    for (mpf_ptr f : {x_words, pi_words, log2_words, right_words}) mpf_init2(f, static_cast<u64>(bits) + 64);
    mpfr_get_f(x_words, x, MPFR_RNDN);
    mpfr_get_f(pi_words, pi, MPFR_RNDN);
    mpfr_get_f(log2_words, log2, MPFR_RNDN);
    const BigFloat<u64> x_view = view(x_words), pi_view = view(pi_words), log2_view = view(log2_words);
    const LogOperands<BigFloat<u64>> operands{hashed(pi_view), hashed(log2_view)};
    const auto our_agm = [&] { agm.run(ctx, frame_, out, hashed(x_view), heap.buffer()); };
    const auto peer_agm = [&] { mpfr_agm(right, one, x, MPFR_RNDN); };
    const auto our_log = [&] { log.run(ctx, frame_, out, hashed(x_view), operands, heap.buffer()); };
    const auto peer_log = [&] { mpfr_log(right, x, MPFR_RNDN); };
    const auto compare = [&](const char* name, const Need& own, const auto& ours, const auto& peer) {
      ours();
      peer();
      mpfr_get_f(right_words, right, MPFR_RNDN);
      require(agree(out, right_words, words_ - 2), name);
      row(name, own, ours, peer);
    };
    compare("AGM(1,x)", agm.need(), our_agm, peer_agm);
    compare("Log(x)", log.need(), our_log, peer_log);
    mpfr_clears(x, pi, log2, one, right, nullptr);
    mpf_clears(x_words, pi_words, log2_words, right_words, nullptr);
  }

  static BigFloat<u64> view(mpf_srcptr f) {
    BigFloat<u64> x(f->_mp_d, 0);
    x.L = static_cast<u64>(f->_mp_size);
    x.exp = f->_mp_exp - f->_mp_size;
    x.sign = 1;
    return x;
  }

  u64 digits_;
  u64 words_;
  u64 digit_words_;
  Division_BigFloatR<u64> division_;
  InvsqrtWord_BigFloatR<u64> root_;
  ConvertPlanP<u64> conversion_;
  VerifyConversion<u64> proof_;
  Need need_;
  Memory heap_;
  Memory table_memory_;
  TransformTables tables_;
  std::unique_ptr<Parallelizer> framework_;
  RunContext ctx_;
  NullStackFrame frame_;
};

Options parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg.rfind("-TD:", 0) == 0)
      options.tds = std::strtoull(arg.c_str() + 4, nullptr, 10);
    else if (arg.rfind("-PF:", 0) == 0)
      options.framework = arg.substr(4);
    else
      options.digits.push_back(std::strtoull(arg.c_str(), nullptr, 10));
  }
  if (options.digits.empty()) options.digits = {1000000, 10000000};
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = parse(argc, argv);
  register_frameworks();
  register_multiplication();
  bench::heading("functions_bench", simd::target_name(simd::active_target()));
  std::printf("%12s  %-10s %9s %7s %9s %6s  %6s\n", "digits", "function", "s", "spread", "GMP s", "ratio",
              "B/dgt");
  for (const u64 digits : options.digits) Bench(digits, options).run();
}
