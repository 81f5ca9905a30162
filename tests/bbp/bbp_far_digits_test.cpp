// Digits of Pi far out: both formulas, and values that were published.
#include <gtest/gtest.h>

#include "bbp/bbp_digits.h"
#include "simd/target.h"

namespace {

using namespace orvane;

struct Published {
  u64 place;
  const char* digits;
};

class BbpFarDigits : public testing::TestWithParam<Published> {};

// D. Bailey, P. Borwein, S. Plouffe, "On the rapid computation of various polylogarithmic constants",
// Mathematics of Computation 66 (1997), table of the digits of Pi from a place on; a computation of all
// digits up to 10^8 by the Chudnovsky series gives the same.
INSTANTIATE_TEST_SUITE_P(Places, BbpFarDigits,
                         testing::Values(Published{1000000, "26c65e52cb4593"},
                                         Published{10000000, "17af5863efed8d"},
                                         Published{100000000, "ecb840e21926ec"}));

TEST_P(BbpFarDigits, AreThePublishedOnesByBothFormulas) {
  if (GetParam().place > 10000000 && orl::simd::best_target() < orl::simd::Target::kAvx2)
    GTEST_SKIP() << "minutes without vector instructions";
  BbpTask task{BbpFormula::kBellard, GetParam().place - 1, 24, 2, {}};
  const std::string bellard = bbp_digits(task, orl::silent_status()).substr(0, task.digits);
  EXPECT_EQ(bellard.substr(0, 14), GetParam().digits);
  task.formula = BbpFormula::kPlouffe;
  EXPECT_EQ(bbp_digits(task, orl::silent_status()).substr(0, task.digits), bellard);
}

}  // namespace
