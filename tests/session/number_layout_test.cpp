#include "session/number_layout.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "core/exceptions.h"
#include "support/gmp_oracle.h"
#include "support/random_words.h"
#include "support/test_parallelizers.h"

namespace orvane {
namespace {

using orl::test::Mpz;
using orl::test::Random;

// A number of `L` words with the given magnitude, `free` words above the start of a buffer of `size`.
orl::BigFloat<Word> number_in(std::vector<Word>& buffer, const std::vector<Word>& words, u64 free,
                              orl::s64 magnitude) {
  std::copy(words.begin(), words.end(), buffer.begin() + static_cast<orl::s64>(free));
  orl::BigFloat<Word> number(buffer.data(), buffer.size());
  number.T = number.base + free;
  number.L = words.size();
  number.exp = magnitude - static_cast<orl::s64>(words.size());
  number.sign = 1;
  return number;
}

TEST(NumberLayout, CutsTheNumberAtItsLastWordAndKnowsTheHashOfTheRest) {
  Random random;
  SCOPED_TRACE(random.replay());
  orl::test::ReverseOrder framework;
  for (int round = 0; round < 2000; round++) {
    const u64 count = 1 + random.below(20), length = 1 + random.below(24), free = random.below(10);
    const orl::s64 magnitude = random.coin() ? 1 : 0;
    std::vector<Word> buffer(std::max(count, free + length) + random.below(3), 0x5555555555555555);
    const std::vector<Word> words = random.number<Word>(length);
    const orl::BigFloat<Word> number = number_in(buffer, words, free, magnitude);
    const orl::ParallelContext parallel{framework, 1 + random.below(3)};

    const FixedNumber fixed = lay_out(number, number.computed_hash(parallel), count, parallel);
    const orl::s64 shift = 64 * (static_cast<orl::s64>(count) - 1 + number.exp);
    const Mpz expected =
        shift >= 0 ? Mpz(words) << static_cast<u64>(shift) : Mpz(words) >> static_cast<u64>(-shift);
    ASSERT_EQ(fixed.count, count);
    ASSERT_GE(fixed.words, buffer.data());
    ASSERT_LE(fixed.words + count, buffer.data() + buffer.size());
    ASSERT_TRUE(Mpz(fixed.words, count) == expected) << count << " of " << length << " at " << free;
    ASSERT_EQ(fixed.hash, orl::test::residue_m61(expected));
  }
}

TEST(NumberLayout, RefusesWhatTheOutputCannotShow) {
  orl::test::ReverseOrder framework;
  const auto refused = [&](orl::s64 magnitude, orl::u8 sign, u64 length) {
    std::vector<Word> buffer(5);
    orl::BigFloat<Word> number = number_in(buffer, std::vector<Word>(length, 7), 0, magnitude);
    number.sign = sign;
    try {
      lay_out(number, 0, 5, {framework, 1});
    } catch (const orl::InvalidParametersException& e) {
      return e.message().substr(0, e.message().find('\n'));
    }
    return std::string("taken");
  };
  EXPECT_EQ(refused(1, 1, 3), "taken");
  EXPECT_EQ(refused(0, 1, 3), "taken");
  EXPECT_EQ(refused(2, 1, 3), "Number is out of range.");
  EXPECT_EQ(refused(-1, 1, 3), "Number is out of range.");
  EXPECT_EQ(refused(1, 0, 3), "Number is out of range.");
  EXPECT_EQ(refused(1, 1, 0), "Number is zero and out of range.");
  std::vector<Word> buffer(5);
  EXPECT_THROW(lay_out(number_in(buffer, {7}, 0, 1), 7, 6, {framework, 1}), orl::BufferTooSmallException);
}

}  // namespace
}  // namespace orvane
