#include "multiply/algorithm_table.h"

#include <gtest/gtest.h>

#include "support/gmp_oracle.h"
#include "support/multiplication.h"
#include "support/random_words.h"
#include "support/test_parallelizers.h"
#include "support/thrown.h"
#include "threads/simple_frameworks.h"
#include "words/words.h"

namespace orl::test {
namespace {

template <class W>
class AlgorithmTableTest : public testing::Test {};
TYPED_TEST_SUITE(AlgorithmTableTest, BothWords);

const Algorithm* algorithm(const char* id) { return algorithm_registry().find(id)->basic<u32>(); }

TYPED_TEST(AlgorithmTableTest, ThresholdsDecideTheAlgorithm) {
  using W = TypeParam;
  const AlgorithmTable<W>& table = basic_table<W>();
  EXPECT_EQ(table.name(), sizeof(W) == 4 ? "Basic: 32-bit Word" : "Basic: 64-bit Word");
  for (u64 row = 0; row < table.entries().size(); ++row) {
    const u64 threshold = table.entries()[row].threshold;
    EXPECT_EQ(threshold, default_basic_rows()[row].threshold_bits / table.word_bits);
    EXPECT_EQ(table.get_algorithm(threshold).id(), default_basic_rows()[row].id);
    if (row + 1 < table.entries().size()) {
      EXPECT_EQ(table.get_algorithm(threshold + 1).id(), default_basic_rows()[row + 1].id);
    }
  }
  ASSERT_GE(table.max_words() * table.word_bits, u64{0x12C0000000000});
  const auto attempt = [](const char* function, auto&& call) {
    const auto failure = caught<LimitExceededException>(call);
    EXPECT_EQ(failure.function(), function);
    EXPECT_EQ(failure.limit(), 0u);
  };
  attempt("AlgorithmTable::get_algorithm()", [&] { table.get_algorithm(table.max_words() + 1); });
  attempt("AlgorithmTableB::mSBsizes()", [&] { table.sizes(table.max_words() + 1, 1); });
  attempt("AlgorithmTableB::mSBsize()", [&] { table.mul_cost(table.max_words() / 2, 1); });
}

TEST(AlgorithmTable, RefusesRowsThatCannotBe) {
  AlgorithmTable<u32> table("test");
  const Algorithm* const bkt = algorithm("BKT");
  table.add(100, static_cast<const Algorithm*>(nullptr));
  EXPECT_TRUE(table.entries().empty());
  table.add(160, bkt);
  EXPECT_THROW(table.add(160, bkt), StringException);
  EXPECT_THROW(table.add(0x10000 / 32 + 1, bkt), StringException);
  EXPECT_THROW(table.add(u64{1} << 60, bkt), StringException);  // the product with the word size would wrap
  table.add(0x10000 / 32, bkt);
  EXPECT_EQ(table.entries().size(), 2u);
}

TEST(AlgorithmTable, ReportsUnknownAlgorithmsAndBuildsTheRest) {
  AlgorithmRegistry registry;
  registry.add("BKT", {.basic_u64 = algorithm("BKT")});
  EXPECT_THROW(registry.add("BKT", {}), InvalidParametersException);
  AlgorithmTable<u32> narrow("Basic: 32-bit Word");
  AlgorithmTable<u64> wide("Basic: 64-bit Word");
  const AlgorithmRow rows[] = {{"XYZ", 4096}, {"BKT", 5120}};
  const std::string unknown = "Skipping unknown algorithm: XYZ";
  const std::vector<std::string> both = {unknown, "Warning: BKT does not support: \"Basic: 32-bit Word\""};
  EXPECT_EQ(narrow.add_list(registry, rows), both);
  EXPECT_TRUE(narrow.entries().empty());
  EXPECT_EQ(wide.add_list(registry, rows), std::vector<std::string>{unknown});
  ASSERT_EQ(wide.entries().size(), 1u);
  EXPECT_EQ(wide.entries()[0].threshold, 80u);
}

// A trimmed product has the words of the window, but for carries from below it.
TEST(AlgorithmTable, TrimmingKeepsTheWindow) {
  Random random;
  for (u64 AL = 1; AL <= 7; ++AL) {
    for (u64 BL = 1; BL <= 7; ++BL) {
      const std::vector<u32> A = random.number<u32>(AL), B = random.number<u32>(BL);
      const Mpz whole = Mpz(A) * Mpz(B);
      for (u64 skip = 0; skip < AL + BL; ++skip) {
        for (u64 len = skip + 1; len <= AL + BL; ++len) {
          const TrimmedProduct t = trim_product(skip, len, AL, BL);
          ASSERT_GT(t.a_length, 0u);
          ASSERT_GT(t.b_length, 0u);
          ASSERT_LE(t.a_offset + t.a_length, AL);
          ASSERT_LE(t.b_offset + t.b_length, BL);
          ASSERT_EQ(t.len - t.skip, len - skip);
          ASSERT_LE(t.len, t.a_length + t.b_length);
          const Mpz part = Mpz(A.data() + t.a_offset, t.a_length) * Mpz(B.data() + t.b_offset, t.b_length);
          const Mpz modulus = Mpz(1) << (32 * (len - skip));
          const Mpz lost = ((whole >> (32 * skip)) - (part >> (32 * t.skip))) % modulus;
          // Columns below the window hold at most 7 products each: their carries reach two words.
          EXPECT_TRUE((lost >> 36) == Mpz(0)) << AL << ' ' << BL << ' ' << skip << ' ' << len;
          EXPECT_TRUE(skip > 0 || lost == Mpz(0)) << AL << ' ' << BL << ' ' << len;
        }
      }
    }
  }
}

TYPED_TEST(AlgorithmTableTest, MaxSizesCoverEveryProductAndAreReached) {
  using W = TypeParam;
  const AlgorithmTable<W>& table = basic_table<W>();
  for (const u64 tds : {1, 7, 65536}) {
    for (const u64 transforms : {1, 2, 4}) {
      const auto bytes_of = [&](const MultiplySizes& sizes) {
        return transforms * sizes.transform_bytes + sizes.scratch_bytes;
      };
      u64 largest = 0, largest_least = 0, lean = 0;
      // Past the smallest product that has a lean algorithm.
      for (u64 words = 1; words <= 8000; ++words) {
        ParametersBox box;
        const u64 row = bytes_of(table.sizes(words, tds));
        const u64 other =
            bytes_of(table.parameters_for(box, nullptr, words, tds, ShapeChoice::kLean).sizes());
        largest = std::max(largest, row);
        largest_least = std::max(largest_least, std::min(row, other));
        lean += other < row;
        // The row's shape where it fits, to the byte.
        ASSERT_EQ(bytes_of(table.parameters_within(row, transforms, box, nullptr, words, tds).sizes()), row);
        ASSERT_EQ(bytes_of(table.parameters_within(row - 1, transforms, box, nullptr, words, tds).sizes()),
                  other);
        if (words % 37 != 0 && words > 300) continue;
        const ProductSizes most = table.max_sizes(words, tds);
        ASSERT_TRUE(transforms > 2 || (transforms == 1 ? most.square_bytes : most.product_bytes) == largest)
            << words;
        ASSERT_EQ(table.max_least_bytes(words, tds, transforms), largest_least) << words;
      }
      EXPECT_GT(lean, 100u);
    }
  }
}

TYPED_TEST(AlgorithmTableTest, TablesTakeWhatTheyAreSaidToTake) {
  using W = TypeParam;
  const AlgorithmTable<W>& table = basic_table<W>();
  for (const u64 bits : {u64{1}, u64{5120}, u64{5121}, u64{221184}, u64{221185}, u64{0x400000}}) {
    const GuardedBlock block(table.table_bytes(bits));
    TransformTables tables(block.buffer());
    table.ensure_tables(tables, bits);
    EXPECT_TRUE(block.intact());
    EXPECT_EQ(tables.memory().size, 0u) << "more was planned than cut at " << bits;
  }
  EXPECT_EQ(table.table_bytes(~u64{0}), table.table_bytes(table.max_words() * table.word_bits));
  // An algorithm with two rows has one set of tables.
  const u64 once = table.table_bytes(0x10000);
  ScopedBasicTable<W> twice({{"BKT", 640}, {"FFT", 12800}, {"FFT", 0x10000}});
  EXPECT_EQ(basic_table<W>().table_bytes(0x10000), once);
  EXPECT_THROW(table.table_bytes(table.max_words() * table.word_bits + 1), LimitExceededException);
}

// Products and windows at every threshold of a table, in scratch of exactly the planned size.
template <class W>
void check_products(const TransformTables& tables, const std::vector<u64>& sizes) {
  Random random;
  ReverseOrder reverse;
  const AlgorithmTable<W>& table = basic_table<W>();
  for (const u64 words : sizes) {
    for (const u64 tds : {1, 2, 7}) {
      const GuardedBlock scratch(table.max_sizes(words, tds).product_bytes);
      const MultiplyContext ctx{{reverse, tds}, tables, scratch.buffer()};
      for (int repeat = 0; repeat < 3; ++repeat) {
        const u64 BL = repeat == 0 ? words / 2 : 1 + random.below(words - 1);
        const u64 AL = words - BL;
        const std::vector<W> A = random.words<W>(AL), B = random.words<W>(BL);
        const Mpz whole = Mpz(A) * Mpz(B);
        GuardedWords<W> T(words, random.below(16));
        table.mul(ctx, T.data(), Words{A.data(), AL}, Words{B.data(), BL});
        ASSERT_EQ(T.words(), whole.words<W>(words)) << words << " words, " << BL << " of them B, tds " << tds;
        ASSERT_TRUE(T.intact() && scratch.intact());

        const u64 skip = random.below(words);
        const u64 len = skip + 1 + random.below(words - skip);
        GuardedWords<W> window(len - skip, random.below(16));
        table.mul_window(ctx, Window{window.data(), skip, len}, Words{A.data(), AL}, Words{B.data(), BL});
        ASSERT_TRUE(window.intact() && scratch.intact());
        const Mpz modulus = Mpz(1) << (8 * sizeof(W) * (len - skip));
        const Mpz lost = ((whole >> (8 * sizeof(W) * skip)) - Mpz(window.words())) % modulus;
        ASSERT_TRUE((lost >> (16 * sizeof(W))) == Mpz(0))
            << "window [" << skip << ", " << len << ") of " << words;
        if (skip == 0) {
          ASSERT_TRUE(lost == Mpz(0));
        }
      }
      const u64 L = words / 2;
      const std::vector<W> A = random.words<W>(L);
      GuardedWords<W> T(2 * L, 3);
      const GuardedBlock square_scratch(table.max_sizes(2 * L, tds).square_bytes);
      table.sqr(ctx.with_scratch(square_scratch.buffer()), T.data(), Words{A.data(), L});
      ASSERT_EQ(T.words(), (Mpz(A) * Mpz(A)).template words<W>(2 * L))
          << "square of " << L << ", tds " << tds;
      ASSERT_TRUE(T.intact() && square_scratch.intact());
    }
  }
}

template <class W>
std::vector<u64> around(std::initializer_list<u64> bits) {
  std::vector<u64> sizes;
  for (const u64 b : bits) {
    const u64 words = b / (8 * sizeof(W));
    for (const u64 size : {words - 1, words, words + 1})
      if (size >= 2) sizes.push_back(size);
  }
  return sizes;
}

TYPED_TEST(AlgorithmTableTest, ProductsAreRightAtEveryThreshold) {
  const TestTables tables(0x60000);
  check_products<TypeParam>(tables,
                            around<TypeParam>({64, 320, 640, 2500, 5120, 5376, 10000, 49152, 221184}));
  EXPECT_TRUE(tables.intact());
}

TYPED_TEST(AlgorithmTableTest, ProductsAreRightWithThresholdsAtTheirExtremes) {
  const std::vector<u64> sizes = around<TypeParam>({64, 512, 5120, 40000, 0x10000 - 64});
  {
    const TestTables tables(0x10000);
    ScopedBasicTable<TypeParam> all_fft({{"FFT", 0x10000}});
    check_products<TypeParam>(tables, sizes);
  }
  {
    ScopedBasicTable<TypeParam> all_basecase({{"BKT", 0x10000}});
    const TestTables tables(64);
    check_products<TypeParam>(tables, sizes);
    EXPECT_THROW(basic_table<TypeParam>().get_algorithm(0x10000 / (8 * sizeof(TypeParam)) + 1),
                 LimitExceededException);
  }
  EXPECT_EQ(basic_table<TypeParam>().entries().size(), default_basic_rows().size());
}

TEST(AlgorithmTable, RefusesScratchThatIsTooSmall) {
  const TestTables tables(0x10000);
  Parallelizer_None none;
  const AlgorithmTable<u32>& table = basic_table<u32>();
  const std::vector<u32> A(500, 7);
  std::vector<u32> T(1000);
  const GuardedBlock scratch(table.sizes(1000, 1).total_bytes() - 64);
  EXPECT_THROW(
      table.mul({{none, 1}, tables, scratch.buffer()}, T.data(), Words{A.data(), 500}, Words{A.data(), 500}),
      BufferTooSmallException);
}

}  // namespace
}  // namespace orl::test
