// Known answers: the operands to the byte, and every registered algorithm through its own slots, each proved
// by the hash alone and each caught when a word changes.
#include "stress/known_answers.h"

#include <gtest/gtest.h>

#include "core/exceptions.h"
#include "multiply/algorithm_table.h"
#include "support/multiplication.h"
#include "support/random_words.h"
#include "threads/simple_frameworks.h"
#include "words/hash.h"

namespace orl::test {
namespace {

template <class W>
class KnownAnswers : public testing::Test {};
TYPED_TEST_SUITE(KnownAnswers, BothWords);

// Worked out with unbounded integers and cut to a word.
TEST(KnownWords, AreTheCubicOfTheirIndexAndSeed) {
  EXPECT_EQ(known_word<u64>(0, 0), 0x916f3fa9fb3a2ed8u);
  EXPECT_EQ(known_word<u64>(5, 1u << 20), 0x857cd76bcbb7ac73u);
  EXPECT_EQ(known_word<u32>(0, 0), 0xfb3a2ed8u);
  EXPECT_EQ(known_word<u32>(7, 0xFFFFFFFF), 0x76512926u);
}

TYPED_TEST(KnownAnswers, WindowsAndTasksWriteTheSameWords) {
  using W = TypeParam;
  Random random;
  constexpr u64 kWords = 100000;
  const u64 seed = random.next();
  Parallelizer_None none;
  Parallelizer_Spawn spawn;
  std::vector<W> whole(kWords);
  fill_known_words(whole.data(), 0, kWords, seed, {none, 1});
  for (const u64 length : {u64{1}, u64{16383}, u64{16384}, u64{49153}, kWords}) {
    const u64 first = random.below(kWords - length + 1);
    GuardedWords<W> window(length);
    fill_known_words(window.data(), first, length, seed, {spawn, 3});
    EXPECT_TRUE(std::equal(window.data(), window.data() + length, whole.data() + first));
    EXPECT_TRUE(window.intact());
  }
}

TYPED_TEST(KnownAnswers, EveryAlgorithmPassesAndNoChangedWordDoes) {
  using W = TypeParam;
  Random random;
  Parallelizer_Spawn spawn;
  const ParallelContext parallel{spawn, 2};
  for (const auto& [id, instances] : algorithm_registry().all()) {
    const Algorithm* algorithm = instances.template basic<W>();
    if (algorithm == nullptr) continue;
    SCOPED_TRACE(id);
    const u64 most = std::min<u64>(algorithm->max_bits(), 3000000) / (16 * sizeof(W));
    for (const u64 words : {u64{1}, u64{100}, random.between(101, most), most}) {
      KnownAnswerRounds<W> rounds(*algorithm, words, parallel.tds);
      const GuardedBlock memory(rounds.bytes());
      rounds.prepare(memory.buffer(), random.next(), parallel);
      for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(rounds.square(parallel).passed()) << words;
        EXPECT_TRUE(rounds.product(parallel).passed()) << words;
      }
      EXPECT_EQ(rounds.product(parallel).product_words, 2 * words);
      EXPECT_TRUE(rounds.intact(parallel));
      W& word = rounds.operand(1)[random.below(words)];
      word ^= W{1} << random.below(8 * sizeof(W));
      EXPECT_TRUE(rounds.square(parallel).passed());
      EXPECT_FALSE(rounds.product(parallel).passed()) << words;
      EXPECT_FALSE(rounds.intact(parallel));
      EXPECT_TRUE(memory.intact());
    }
    EXPECT_THROW(KnownAnswerRounds<W>(*algorithm, algorithm->max_bits() / (16 * sizeof(W)) + 1, 1),
                 LimitExceededException);
  }
}

TYPED_TEST(KnownAnswers, ManyOperandsAreEachTheirOwn) {
  using W = TypeParam;
  Random random;
  Parallelizer_None none;
  const ParallelContext parallel{none, 1};
  constexpr u64 operands = 7;
  for (const char* id : {"BKT", "FFT", "C17"}) {
    SCOPED_TRACE(id);
    const Algorithm& algorithm = *algorithm_registry().find(id)->basic<W>();
    const u64 words = random.between(20, 300);
    KnownAnswerRounds<W> rounds(algorithm, words, 1, operands);
    const GuardedBlock memory(rounds.bytes());
    rounds.prepare(memory.buffer(), random.next(), parallel);
    const u64 hit = random.below(operands);
    rounds.operand(hit)[random.below(words)] ^= W{1} << random.below(8 * sizeof(W));
    for (u64 i = 0; i < operands; ++i) {
      const u64 next = (i + 1) % operands;
      EXPECT_EQ(rounds.square(parallel, i).passed(), i != hit);
      EXPECT_EQ(rounds.product(parallel, i, next).passed(), i != hit && next != hit);
    }
    EXPECT_TRUE(memory.intact());
    rounds.prepare(memory.buffer(), random.next(), parallel);
    EXPECT_TRUE(rounds.intact(parallel));
    const LinearHeapBuffer tables = rounds.tables();
    if (tables.size == 0) continue;
    static_cast<u8*>(tables.ptr)[random.below(tables.size)] ^= 1;
    EXPECT_FALSE(rounds.intact(parallel));
  }
}

}  // namespace
}  // namespace orl::test
