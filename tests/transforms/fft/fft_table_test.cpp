// The size table, the twiddle tables and the sizes that are stated.
#include <mpfr.h>

#include <cmath>

#include "support/thrown.h"
#include "transforms/fft/fft_bounds.h"
#include "transforms/fft/fft_test_support.h"

namespace orl::test {
namespace {

TEST(FftTable, ProductTakesTheFirstRowThatHoldsIt) {
  const auto rows = fft_rows();
  EXPECT_EQ(rows.front().bits, 2048u);
  EXPECT_EQ(&find_fft_row(1), &rows.front());
  for (u64 i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(&find_fft_row(rows[i].bits), &rows[i]);
    if (i > 0) {
      EXPECT_EQ(&find_fft_row(rows[i - 1].bits + 1), &rows[i]);
    }
  }
  EXPECT_EQ(rows.back().bits, fft_algorithm().max_bits());
  const auto failure = caught<LimitExceededException>([&] { find_fft_row(rows.back().bits + 1); });
  EXPECT_EQ(failure.limit(), rows.back().bits);
  EXPECT_EQ(failure.attempted(), rows.back().bits + 1);
}

TEST(FftTable, RowsKeepTheAccuracyLimit) {
  for (const FftRow& row : fft_rows()) {
    EXPECT_GE(row.w, 9u) << text_of(row);
    EXPECT_LE(fft_error_bound(row.points(), row.w), 0.5) << text_of(row);
  }
  // The bound refuses what is known to go wrong.
  EXPECT_FALSE(fft_rounds_safely(32768, 17));
  EXPECT_FALSE(fft_rounds_safely(256, 21));
}

TEST(FftTwiddles, AnglesAreRightToHalfAUnitInTheLastPlace) {
  Random random;
  mpfr_t angle, c, s;
  mpfr_inits2(200, angle, c, s, static_cast<mpfr_ptr>(nullptr));
  const auto ulps = [](mpfr_t exact, double value) {
    mpfr_sub_d(exact, exact, value, MPFR_RNDN);
    return std::fabs(mpfr_get_d(exact, MPFR_RNDN)) /
           (std::nextafter(std::fabs(value), 2.0) - std::fabs(value));
  };
  for (int i = 0; i < 2000; ++i) {
    const u64 denominator = u64{random.coin() ? 1u : random.coin() ? 3u : 5u} << random.between(0, 30);
    const u64 numerator = random.below(denominator);
    const auto [re, im] = unit_root({numerator, denominator});
    mpfr_const_pi(angle, MPFR_RNDN);
    mpfr_mul_ui(angle, angle, 2 * numerator, MPFR_RNDN);
    mpfr_div_ui(angle, angle, denominator, MPFR_RNDN);
    mpfr_sin_cos(s, c, angle, MPFR_RNDN);
    // At multiples of a quarter turn one part is 0, here exactly, there up to the rounding of pi.
    if (4 * numerator % denominator == 0) {
      EXPECT_TRUE((re == 0) != (im == 0));
      EXPECT_EQ(std::fabs(re) + std::fabs(im), 1.0);
      continue;
    }
    EXPECT_LT(ulps(c, re), 0.51) << numerator << " / " << denominator;
    EXPECT_LT(ulps(s, im), 0.51) << numerator << " / " << denominator;
    const auto [mirrored_re, mirrored_im] = unit_root({denominator - numerator, denominator});
    EXPECT_EQ(re, mirrored_re);
    EXPECT_EQ(im, -mirrored_im);
  }
  mpfr_clears(angle, c, s, static_cast<mpfr_ptr>(nullptr));
}

TEST(FftTwiddles, GrowingCutsWhatIsStatedOnce) {
  const auto rows = fft_rows();
  const u64 largest = rows.back().bits;
  GuardedBlock memory(fft_algorithm().table_bytes(largest));
  TransformTables tables(memory.buffer());
  u64 stated = 0;
  for (const FftRow& row : rows) {
    EXPECT_GE(fft_algorithm().table_bytes(row.bits), stated);
    stated = fft_algorithm().table_bytes(row.bits);
    fft_algorithm().ensure_tables(tables, row.bits);
    EXPECT_EQ(tables.memory().size, fft_algorithm().table_bytes(largest) - stated) << text_of(row);
  }
  EXPECT_TRUE(memory.intact());
  // Far smaller than what they serve.
  EXPECT_LT(stated, 8 * rows.back().points() / 50);
  fft_algorithm().ensure_tables(tables, largest);
  EXPECT_EQ(tables.memory().size, 0u);
}

TEST(FftTwiddles, AProductBeyondItsTablesIsRefused) {
  const Algorithm& fft = fft_algorithm();
  const auto rows = fft_rows();
  const AlgorithmTables some(fft, rows[40].bits);
  const TransformTables none(LinearHeapBuffer{}), &tables = some;
  for (const FftRow& row : rows) {
    SCOPED_TRACE(text_of(row));
    ParametersBox box;
    EXPECT_THROW(fft.parameters_for(box, &none, row.bits, 1), InvalidParametersException);
    if (row.bits <= rows[40].bits) {
      EXPECT_NO_THROW(fft.parameters_for(box, &tables, row.bits, 1));
    } else if (row.s > rows[40].s + 2) {
      EXPECT_THROW(fft.parameters_for(box, &tables, row.bits, 1), InvalidParametersException);
    }
  }
  // The forms that build no Parameters: refused before a word is written.
  const u64 words = rows.back().bits / 64;
  const std::vector<u32> a(words, 1);
  std::vector<u32> product(2 * words);
  const Words<u32> operand{a.data(), words};
  const GuardedBlock scratch(fft.sizes(64 * words, 1).total_bytes());
  Parallelizer_None serial;
  const MultiplyContext ctx{{serial, 1}, tables, scratch.buffer()};
  const Window<u32> window{product.data(), 0, 2 * words};
  EXPECT_THROW(fft.sqr_window(ctx, window, operand), InvalidParametersException);
  EXPECT_THROW(fft.mul_window(ctx, window, operand, operand), InvalidParametersException);
}

TEST(FftSizes, ParametersStateWhatSizesStates) {
  for (const FftRow& row : fft_rows())
    for (u64 tds : {1, 2, 64}) {
      ParametersBox box;
      const Parameters& p = fft_algorithm().parameters_for(box, nullptr, row.bits, tds);
      const MultiplySizes sizes = fft_algorithm().sizes(row.bits, tds);
      EXPECT_EQ(p.max_bits(), row.bits);
      EXPECT_EQ(p.transform_size(), 8 * row.points());
      EXPECT_EQ(p.sizes().total_bytes(), sizes.total_bytes());
      if (tds == 1) {
        EXPECT_LE(p.scratch_size(), 4 * row.points()) << text_of(row);
      }
    }
}

}  // namespace
}  // namespace orl::test
