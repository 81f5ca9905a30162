// Digits between words, bytes and characters, and what is counted and hashed of them.
#include "digits/digit_words.h"

#include <gtest/gtest.h>

#include <array>

#include "digits/digit_kernels.h"
#include "digits/digit_stats.h"
#include "digits/digit_text.h"
#include "digits/hashed_digits.h"
#include "simd/target.h"
#include "support/gmp_oracle.h"
#include "support/random_words.h"
#include "support/test_parallelizers.h"
#include "support/thrown.h"
#include "threads/frameworks.h"
#include "words/hash.h"

namespace orl::test {
namespace {

u64 random_digit_word(Random& random, u32 radix) {
  const u64 word = random.edge_word<u64>();
  return word <= largest_word(radix) ? word : largest_word(radix) - random.below(3);
}

// Stretches of one value among random digits.
std::vector<u8> random_digits(Random& random, u32 radix, u64 count) {
  std::vector<u8> digits(count);
  for (u64 i = 0; i < count;) {
    const u64 end = std::min(count, i + 1 + random.below(60));
    const bool run = random.coin();
    const u8 value = random.coin() ? static_cast<u8>(radix - 1) : static_cast<u8>(random.below(radix));
    for (; i < end; i++) digits[i] = run ? value : static_cast<u8>(random.below(radix));
  }
  return digits;
}

class Radix : public testing::TestWithParam<u32> {};
INSTANTIATE_TEST_SUITE_P(DigitWords, Radix, testing::Values(10, 16));

TEST_P(Radix, WordsAreTheirDigitsMostSignificantFirst) {
  Random random;
  const u32 radix = GetParam();
  const u64 width = digits_per_word(radix);
  for (int round = 0; round < 200; round++) {
    const u64 count = random.below(40);
    std::vector<u64> words(count);
    for (u64& word : words) word = random_digit_word(random, radix);
    std::vector<u8> expected;
    for (u64 word : words) {
      std::vector<u8> digits(width);
      for (u64 i = width; i-- > 0; word /= radix) digits[i] = static_cast<u8>(word % radix);
      expected.insert(expected.end(), digits.begin(), digits.end());
    }
    GuardedWords<u8> digits(count * width, random.below(64));
    unpack_words(radix, digits.data(), words.data(), 1, count);
    EXPECT_EQ(digits.words(), expected);
    EXPECT_TRUE(digits.intact());

    GuardedWords<u64> packed(count, random.below(8));
    EXPECT_FALSE(pack_words(radix, packed.data(), digits.data(), count));
    EXPECT_EQ(packed.words(), words);
    EXPECT_TRUE(packed.intact());

    if (count == 0) continue;
    std::reverse(words.begin(), words.end());
    unpack_words(radix, digits.data(), words.data() + count - 1, -1, count);
    EXPECT_EQ(digits.words(), expected) << "downwards";
    const u64 begin = random.below(width), length = random.below(width - begin + 1);
    std::vector<u8> part(length);
    unpack_part(radix, part.data(), words.back(), begin, length);
    EXPECT_EQ(part, std::vector<u8>(expected.begin() + static_cast<s64>(begin),
                                    expected.begin() + static_cast<s64>(begin + length)));
  }
}

TEST_P(Radix, PackingReportsEveryByteThatIsNoDigit) {
  const u32 radix = GetParam();
  const u64 width = digits_per_word(radix);
  for (u64 at = 0; at < 2 * width; at++) {
    for (u32 value = radix; value < 256; value++) {
      std::vector<u8> digits(2 * width, static_cast<u8>(radix - 1));
      u64 words[2];
      ASSERT_FALSE(pack_words(radix, words, digits.data(), 2));
      digits[at] = static_cast<u8>(value);
      ASSERT_TRUE(pack_words(radix, words, digits.data(), 2)) << at << " " << value;
    }
  }
}

// Those that this machine can run; the scalar ones are the reference.
std::vector<const digits::DigitKernels*> all_kernels() {
  std::vector<const digits::DigitKernels*> kernels = {&digits::scalar::kernels};
  if (simd::best_target() >= simd::Target::kAvx2) kernels.push_back(&digits::avx2::kernels);
  if (simd::best_target() >= simd::Target::kAvx512) kernels.push_back(&digits::avx512::kernels);
  return kernels;
}

TEST_P(Radix, TextTakesExactlyTheDigitsOfTheRadix) {
  const u32 radix = GetParam();
  const std::string characters = std::string("0123456789abcdef").substr(0, radix);
  for (const auto* kernel : all_kernels()) {
    SCOPED_TRACE(kernel->name);
    for (u64 length = 1; length < 140; length++) {
      std::string text;
      for (u64 i = 0; i < length; i++) text.push_back(characters[(i * 7 + length) % radix]);
      std::vector<u8> digits(length);
      ASSERT_FALSE(kernel->from_text(digits.data(), text.data(), length, radix));
      for (u64 i = 0; i < length; i++) ASSERT_EQ(digits[i], characters.find(text[i]));
      std::string back(length, '?');
      kernel->to_text(back.data(), digits.data(), length);
      ASSERT_EQ(back, text);
    }
    constexpr u64 kLength = 150;
    for (u64 at : {0, 7, 8, 15, 16, 31, 32, 63, 64, 127, 128, 149}) {
      for (int c = 0; c < 256; c++) {
        std::string text(kLength, characters.back());
        text[at] = static_cast<char>(c);
        std::vector<u8> digits(kLength);
        const bool good = characters.find(static_cast<char>(c)) != std::string::npos;
        ASSERT_EQ(kernel->from_text(digits.data(), text.data(), kLength, radix), !good) << at << " " << c;
        ASSERT_EQ(digit_value(static_cast<char>(c)) < radix, good);
      }
    }
  }
}

TEST_P(Radix, EveryCountKernelAgreesWithAPlainLoop) {
  Random random;
  const u32 radix = GetParam();
  // A lane counts to 255 before it is emptied: 255 blocks of 64, 32 and 8 bytes.
  for (const u64 length : {0, 1, 7, 63, 64, 65, 200, 8 * 255, 8 * 255 + 1, 32 * 255 + 31, 32 * 256,
                           64 * 255 - 1, 64 * 255, 64 * 256 + 5, 3 * 64 * 255 + 70}) {
    for (const bool one_value : {false, true}) {
      std::vector<u8> digits = random_digits(random, radix, length);
      if (one_value) std::fill(digits.begin(), digits.end(), static_cast<u8>(radix - 1));
      if (length > 100) digits[random.below(length)] = 200;
      std::array<u64, 17> expected{};
      expected.fill(1000);
      for (u8 digit : digits)
        if (digit < radix) expected[digit]++;
      for (const auto* kernel : all_kernels()) {
        std::array<u64, 17> counts{};
        counts.fill(1000);
        kernel->count(digits.data(), length, radix, counts.data());
        EXPECT_EQ(counts, expected) << kernel->name << " " << length;
      }
    }
  }
}

TEST_P(Radix, EveryHashKernelAgreesWithAPlainLoop) {
  Random random;
  const u32 radix = GetParam();
  for (const u64 blocks : {1, 2, 3, 64, 1001}) {
    for (const bool largest : {false, true}) {
      std::vector<u8> digits = random_digits(random, radix, blocks * digits::DigitKernels::kHashBlock);
      if (largest) std::fill(digits.begin(), digits.end(), static_cast<u8>(radix - 1));
      u64 expected = 0;
      for (const u8 digit : digits) expected = hash_mul_add(expected, radix, digit);
      for (const auto* kernel : all_kernels())
        EXPECT_EQ(hash_canon(kernel->hash(digits.data(), blocks, radix)), hash_canon(expected))
            << kernel->name << " " << blocks;
    }
  }
}

TEST_P(Radix, StatsAreThoseOfTheStreamHoweverItIsCut) {
  Random random;
  const u32 radix = GetParam();
  const auto spawn = create_framework("spawn");
  ReverseOrder reversed;
  for (const u64 length :
       {u64{0}, u64{1}, u64{15}, u64{16}, u64{19}, u64{20}, u64{5000}, u64{65536 * 5 + 3}}) {
    const std::vector<u8> digits = random_digits(random, radix, length);
    std::string text(length, '0');
    digits_to_text(text.data(), digits.data(), length);
    Mpz integer;
    if (length != 0) mpz_set_str(integer, text.c_str(), static_cast<int>(radix));
    const u64 expected = residue_m61(integer);
    EXPECT_EQ(hash_canon(hash_digits(radix, digits.data(), length)), expected);

    for (const u64 tds : {1, 2, 7, 200}) {
      for (Parallelizer* framework : {static_cast<Parallelizer*>(&reversed), spawn.get()}) {
        const u64 cut = random.below(length + 1);
        DigitStats stats(radix);
        stats.append(digits.data(), cut, {*framework, tds});
        stats.append(digits.data() + cut, length - cut, {*framework, tds});
        EXPECT_EQ(hash_canon(stats.hash), expected) << length << " " << tds;
        EXPECT_EQ(stats.counts.total(), length);
        for (u32 value = 0; value < 16; value++)
          EXPECT_EQ(stats.counts.count(value),
                    static_cast<u64>(std::count(digits.begin(), digits.end(), static_cast<u8>(value))));
      }
    }
  }
}

TEST(DigitRecords, RefuseAnotherRadix) {
  const u8 digit = 0;
  LastDigits last;
  EXPECT_EQ(refusal([] { DigitCounts(17); }), "DigitCounts::DigitCounts() Radix is too large.");
  EXPECT_EQ(refusal([&] { last.set(8, &digit, 1); }), "LastDigits::set() Invalid Radix.");
  EXPECT_EQ(refusal([] { digits_per_word(2); }), "digits_per_word() Invalid radix.");
  EXPECT_NO_THROW(DigitCounts(16));
}

TEST(DigitRecords, KeepTheLastHundredDigits) {
  LastDigits last;
  std::string all;
  for (const u64 length : {30, 0, 69, 2, 250, 99, 1}) {
    std::vector<u8> digits(length);
    for (u64 i = 0; i < length; i++) digits[i] = static_cast<u8>((all.size() + i * i) % 16);
    for (u8 digit : digits) all.push_back("0123456789abcdef"[digit]);
    last.set(16, digits.data(), length);
    EXPECT_EQ(last.text(), all.substr(all.size() - std::min<std::size_t>(all.size(), LastDigits::kLength)));
  }
}

TEST(DigitRecords, HashTheTextWithTheirIndices) {
  // From coreutils' sha256sum.
  std::vector<u8> digits = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};
  DigitHasher hasher(5);
  hasher.append(digits.data(), 4);
  hasher.append(digits.data() + 4, 6);
  const HashedDigits hashed = hasher.finish();
  EXPECT_EQ(hashed.sha256(), "84d89877f0d4041efb6bf91a16f0248f2fd573e6af05c19f96bedb9f882f7882");
  EXPECT_EQ(hashed.first_index(), 5u);
  EXPECT_EQ(hashed.count(), 10u);
  digits.assign(100000, 7);  // more than a piece
  DigitHasher sevens(1);
  sevens.append(digits.data(), digits.size());
  EXPECT_EQ(sevens.finish().sha256(), "305e82838e7275ec80cad315244eee1b7827f4385e3338dfdcb4d0626e5e29d5");
}

}  // namespace
}  // namespace orl::test
