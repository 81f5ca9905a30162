// Hexadecimal digits of Pi at an offset against MPFR's.
#include "bbp/bbp_digits.h"

#include <gtest/gtest.h>
#include <mpfr.h>

#include <algorithm>

#include "core/status.h"
#include "support/random_words.h"

namespace {

using namespace orvane;

// Digits behind the point.
std::string pi_digits(u64 count) {
  mpfr_t pi;
  mpfr_init2(pi, static_cast<mpfr_prec_t>(4 * count + 64));
  mpfr_const_pi(pi, MPFR_RNDZ);
  mpfr_sub_ui(pi, pi, 3, MPFR_RNDZ);
  mpfr_exp_t exponent;
  char* const text = mpfr_get_str(nullptr, &exponent, 16, count + 8, pi, MPFR_RNDZ);
  EXPECT_EQ(exponent, 0);
  const std::string digits(text, count);
  mpfr_free_str(text);
  mpfr_clear(pi);
  return digits;
}

std::string requested_digits(const BbpTask& task) {
  return bbp_digits(task, orl::silent_status()).substr(0, task.digits);
}

TEST(BbpDigits, AreThoseOfPi) {
  orl::test::Random random;
  const std::string pi = pi_digits(5200);
  for (const u64 offset : {u64{0}, u64{1}, u64{5}, u64{1000}, random.below(4000), random.below(4000)}) {
    for (const BbpFormula formula : {BbpFormula::kPlouffe, BbpFormula::kBellard}) {
      for (const u64 digits : {u64{8}, u64{9}, u64{32}, random.between(10, 1200)}) {
        BbpTask task{formula, offset, digits, random.between(1, 5), {}};
        EXPECT_EQ(requested_digits(task), pi.substr(offset, digits))
            << "offset " << offset << ", formula " << static_cast<int>(formula) << ", threads "
            << task.threads;
      }
    }
  }
}

TEST(BbpDigits, DoNotDependOnThreads) {
  BbpTask task{BbpFormula::kPlouffe, 100000, 40, 1, {}};
  const std::string alone = bbp_digits(task, orl::silent_status());
  task.threads = 3;
  EXPECT_EQ(bbp_digits(task, orl::silent_status()), alone);
  task.pin_order = {0};
  EXPECT_EQ(bbp_digits(task, orl::silent_status()), alone);
  task.pin_order = {0, 1000000};  // a core that nobody has
  testing::internal::CaptureStdout();
  EXPECT_EQ(bbp_digits(task, orl::silent_status()), alone);
  EXPECT_NE(testing::internal::GetCapturedStdout().find("Failed to set core affinity to core: 1000000"),
            std::string::npos);
}

class Lines final : public orl::StatusTransport {
 public:
  void line(std::string_view text) override { lines.emplace_back(text); }
  void permanent(std::string_view, char) override {}

  std::vector<std::string> lines;
};

// From several threads, by turns.
TEST(BbpDigits, ReportTheirProgress) {
  Lines shown;
  orl::LinearNetworkNode status(shown, 79);
  bbp_digits({BbpFormula::kPlouffe, 400000, 8, 3, {}}, status);
  ASSERT_GE(shown.lines.size(), 5u);
  EXPECT_EQ(shown.lines[0], "Preparing...  ");
  EXPECT_EQ(shown.lines[1], "Running...   0.00%");
  EXPECT_EQ(shown.lines[shown.lines.size() - 2], "Summing...   100%");
  const auto running = [](const std::string& line) { return line.starts_with("Running...  "); };
  EXPECT_TRUE(std::all_of(shown.lines.begin() + 1, shown.lines.end() - 2, running));
}

TEST(BbpDigits, StateTheirPrecision) {
  EXPECT_EQ((BbpTask{BbpFormula::kPlouffe, 100, 8, 1, {}}).precision_digits(), 24u);
  EXPECT_EQ((BbpTask{BbpFormula::kPlouffe, 100, 9, 1, {}}).precision_digits(), 32u);
  EXPECT_EQ((BbpTask{BbpFormula::kPlouffe, 100, 8, 1, {}}).limb_count(), 2u);
  EXPECT_EQ((BbpTask{BbpFormula::kPlouffe, 100, 9, 1, {}}).limb_count(), 3u);
  EXPECT_EQ((BbpTask{BbpFormula::kPlouffe, 100, 8, 1, {}}).terms_needed(), 124u);
  EXPECT_EQ((BbpTask{BbpFormula::kBellard, 100, 8, 1, {}}).terms_needed(), 25u);
}

}  // namespace
