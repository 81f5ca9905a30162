// Every check of functions/ speaks when what it watches is damaged: one row for each.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "core/exceptions.h"
#include "core/fault_point.h"
#include "functions/function_runner.h"
#include "functions/log_agm.h"
#include "functions/power.h"
#include "functions/proved.h"
#include "functions/radix_conversion.h"
#include "support/counting_algorithm.h"
#include "support/random_words.h"

namespace orl {
namespace {

struct Fault {
  const char* site = "";
  u64 countdown = 0;  // calls of the site left before the flip; 0 off
  u64 byte = 0;       // from the top
  u64 calls = 0;
};
Fault fault;

}  // namespace

void fault_point(const char* site, void* data, u64 bytes) {
  if (std::strcmp(site, fault.site) != 0) return;
  ++fault.calls;
  if (fault.countdown == 0 || --fault.countdown != 0 || fault.byte >= bytes) return;
  static_cast<u8*>(data)[bytes - 1 - fault.byte] ^= 4;
}

namespace test {
namespace {

using W = u64;
using Store = RamStore<W>;
using Operation = std::function<void(Random&)>;

constexpr u64 kWords = 300;
constexpr u64 kMostCalls = 20;  // of a site that are struck, one in each run

u64 hash_of(const BigFloat<W>& x) { return x.computed_hash(Runner<W>(64).context(1).parallel); }

template <class Plan, class... Operands>
void run_plan(const Plan& plan, const Operands&... operands) {
  Runner<W> runner(plan.need().table_bits);
  OwnedFloat<W> out(plan.need().out_words);
  AlignedBytes memory(plan.need().ram_bytes);
  plan.run(runner.context(1), frame, out.x, operands..., memory.buffer());
}

OwnedFloat<W> operand(Random& random) {
  std::vector<W> words(kWords + 2);
  for (W& word : words) word = random.next() | 1;
  return OwnedFloat<W>(words, -4);
}

void divide(Random& random, DivisionMemory memory) {
  const OwnedFloat<W> a = operand(random), b = operand(random);
  run_plan(ProvedDivision<Store>(kWords, 1, memory), Hashed<BigFloat<W>>{a.x, hash_of(a.x)},
           Hashed<BigFloat<W>>{b.x, hash_of(b.x)});
}
template <class Plan>
void take_root(Random& random) {
  const OwnedFloat<W> a = operand(random);
  run_plan(Plan(kWords, 1), Hashed<BigFloat<W>>{a.x, hash_of(a.x)});
}
void multiply(Random& random) {
  const OwnedFloat<W> a = operand(random), b = operand(random);
  run_plan(ProvedProduct<Store>(kWords, 1), Hashed<BigFloat<W>>{a.x, hash_of(a.x)},
           Hashed<BigFloat<W>>{b.x, hash_of(b.x)});
}
void take_agm(Random& random) {
  const OwnedFloat<W> a = operand(random), b = operand(random);
  run_plan(AGM2<Store>(kWords, 1), Hashed<BigFloat<W>>{a.x, hash_of(a.x)},
           Hashed<BigFloat<W>>{b.x, hash_of(b.x)});
}
void take_log(Random& random) {
  const OwnedFloat<W> x = operand(random), pi = operand(random), log2 = operand(random);
  run_plan(Log_AGM<Store>(kWords, 1), Hashed<BigFloat<W>>{x.x, hash_of(x.x)},
           LogOperands<BigFloat<W>>{{pi.x, hash_of(pi.x)}, {log2.x, hash_of(log2.x)}});
}
void take_power(Random& random) {
  const OwnedFloat<W> x = operand(random);
  run_plan(Power_nL<Store>(kWords, -13, 1), Hashed<BigFloat<W>>{x.x, hash_of(x.x)});
}
// Throws the proof's answer as the session does.
void convert(Random& random) {
  const u64 n = 3000;
  const auto plan = ConvertPlanP<W>::make(kDecimalRadix<W>, n, 1);
  const VerifyConversion<W> proof(kDecimalRadix<W>, n, 1);
  const Need need = Need::max(plan.need(), proof.need());
  Runner<W> runner(need.table_bits);
  AlignedBytes memory(need.ram_bytes);
  std::vector<W> digits(n);
  const OwnedFloat<W> x(random.number<W>(n), -static_cast<s64>(n));
  plan.run(runner.context(1), frame, digits.data(), x.x, memory.buffer());
  if (!proof.run(runner.context(1), frame, digits.data(), x.x, memory.buffer()).ok)
    throw AlgorithmFailedException("proof", "Digits are wrong.");
}

const Operation kKeep = [](Random& r) { divide(r, DivisionMemory::kKeep); };
const Operation kLess = [](Random& r) { divide(r, DivisionMemory::kLess); };
const Operation kLeast = [](Random& r) { divide(r, DivisionMemory::kLeast); };
const Operation kRootOfWord = [](Random&) { run_plan(ProvedInvsqrtWord<Store>(kWords, 1), W{10005}); };
const Operation kSqrt = &take_root<ProvedSqrtFloat<Store>>;
const Operation kInverseRoot = &take_root<ProvedInvsqrtFloat<Store>>;

struct Row {
  const char* site;
  const char* name;
  Operation operation;
  u64 byte;           // from the top of what the site shows
  const char* words;  // of the check that must see it
  bool every = true;  // whichever of the site's calls is hit; else one of them at least, as a later level may
                      // mend the others
};

const Row kRows[] = {
    {"newton estimate", "reciprocal", kKeep, 9, "Convergence Failure", false},
    {"newton estimate", "root", kInverseRoot, 9, "Convergence Failure", false},
    {"newton estimate", "root of a word", kRootOfWord, 9, "Convergence Failure", false},
    {"quotient times divisor", "quotient", kLeast, 1, "Convergence Failure"},
    {"newton product", "reciprocal", kLess, 9, "Checksum Mismatch. Multiplication Failed."},
    {"newton product", "root", kSqrt, 9, "Checksum Mismatch. Multiplication Failed."},
    // Half of these are folded onto low words by the ring of the residual.
    {"newton error", "quotient", kKeep, 20, "Residual is too large. Division failed.", false},
    {"newton error", "quotient, less memory", kLess, 9, "Residual is too large. Division failed.", false},
    {"newton error", "root", kInverseRoot, 20, "Residual is too large.", false},
    {"newton error", "square root", kSqrt, 30, "Residual is too large.", false},
    {"newton error", "root of a word", kRootOfWord, 20, "Residual is too large. Inverse root failed.", false},
    {"newton correction", "reciprocal", kKeep, 9, "Convergence Failure", false},
    {"newton correction", "quotient", kLess, 9, "Residual is too large. Division failed.", false},
    {"newton correction", "root", kInverseRoot, 9, "Residual is too large.", false},
    {"newton correction", "root of a word", kRootOfWord, 9, "Residual is too large. Inverse root failed.",
     false},
    {"quotient", "quotient", kLess, 9, "Residual is too large. Division failed."},
    {"square root", "square root", kSqrt, 9, "Residual is too large. Square root failed."},
    {"square root", "inverse root", kInverseRoot, 9, "Residual is too large. Square root failed."},
    {"inverse root", "inverse root", kInverseRoot, 9, "Residual is too large."},
    {"inverse root", "root of a word", kRootOfWord, 9, "Residual is too large. Inverse root failed."},
    {"residual product", "quotient", kKeep, 900, "Checksum Mismatch. Multiplication Failed."},
    {"residual product", "root of a word", kRootOfWord, 900, "Checksum Mismatch. Multiplication Failed."},
    {"dividend", "quotient", kLess, 9, "Checksum Mismatch. Division failed."},
    {"divisor", "quotient", kLess, 9, "Checksum Mismatch. Division failed."},
    {"proved product", "product", &multiply, 9, "Checksum Mismatch. Multiplication Failed."},
    {"proved product", "product, below the window", &multiply, 8 * kWords + 100,
     "Checksum Mismatch. Multiplication Failed."},
    {"arithmetic mean", "AGM", &take_agm, 9, "Checksum Mismatch."},
    {"geometric mean", "AGM", &take_agm, 9, "Checksum Mismatch."},
    {"geometric mean", "AGM, a low word", &take_agm, 8 * kWords - 9, "Checksum Mismatch."},
    {"product from squares", "AGM", &take_agm, 9, "Checksum Mismatch. Square root failed."},
    {"proved product", "AGM", &take_agm, 9, "Checksum Mismatch. Multiplication Failed."},
    {"square root", "AGM", &take_agm, 9, "Residual is too large. Square root failed."},
    {"newton product", "AGM", &take_agm, 9, "Checksum Mismatch. Multiplication Failed."},
    {"doubled mean", "logarithm", &take_log, 9, "Checksum Mismatch. Division failed."},
    {"multiple of Log(2)", "logarithm", &take_log, 9, "Checksum Mismatch. Logarithm failed."},
    {"logarithm", "logarithm", &take_log, 9, "Checksum Mismatch. Logarithm failed."},
    {"power product", "power", &take_power, 9, "Checksum Mismatch. Multiplication Failed."},
    {"dividend", "power", &take_power, 1, "Checksum Mismatch. Division failed."},
    {"divisor", "power", &take_power, 9, "Checksum Mismatch. Division failed."},
    {"conversion power", "conversion", &convert, 9, "Power Hash Mismatch"},
    {"conversion fraction", "conversion", &convert, 1, "Overlap Mismatch"},
    {"conversion fraction", "conversion", &convert, 60, "Digits are wrong.", false},
    {"conversion digits", "conversion", &convert, 9, "Digits are wrong."},
    {"verified power", "conversion", &convert, 9, "Power Hash Mismatch"},
    {"dropped part", "conversion", &convert, 100, "Digits are wrong."},
};

std::string failure_of(const Operation& operation) {
  Random random(20261121);
  try {
    operation(random);
  } catch (const AlgorithmFailedException& failure) {
    return failure.message();
  }
  return "";
}

TEST(Faults, EveryCheckSpeaks) {
  const CountedProducts<W> wrapped(2);
  for (const Row& row : kRows) {
    SCOPED_TRACE(std::string(row.site) + ", " + row.name);
    fault = {row.site};
    EXPECT_EQ(failure_of(row.operation), "");
    const u64 calls = fault.calls;
    EXPECT_GT(calls, 0u) << "the site is never reached";
    u64 seen = 0;
    for (u64 call = 1; call <= std::min(calls, kMostCalls); ++call) {
      fault = {row.site, call, row.byte};
      if (failure_of(row.operation).find(row.words) != std::string::npos) ++seen;
    }
    EXPECT_GE(seen, row.every ? std::min(calls, kMostCalls) : 1) << row.words;
  }
}

}  // namespace
}  // namespace test
}  // namespace orl
