// From words to files and back, and the ends of a run whose digits prove wrong.
#include "session/digit_output.h"
#include "console/console.h"
#include "console/console_status.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>

#include "core/exceptions.h"
#include "core/fault_point.h"
#include "core/settings.h"
#include "digits/digit_words.h"
#include "digits/sha256.h"
#include "support/child.h"
#include "support/fake_file_calls.h"
#include "support/files.h"
#include "support/gmp_oracle.h"
#include "support/multiplication.h"
#include "support/random_words.h"
#include "support/test_parallelizers.h"
#include "threads/frameworks.h"
#include "words/hash.h"

namespace orl {
namespace {
std::function<void(const std::string& site, void* data, u64 bytes)> g_fault;
}
void fault_point(const char* site, void* data, u64 bytes) {
  if (g_fault) g_fault(site, data, bytes);
}
}  // namespace orl

namespace orvane {
namespace {

using orl::s64;
using orl::u8;
using orl::test::FakeFileCalls;
using orl::test::FileCall;
using orl::test::GuardedBlock;
using orl::test::Mpz;
using orl::test::Random;
using orl::test::read_file;
using orl::test::run_child;
using orl::test::TemporaryFolder;

constexpr u64 kOneFile = ~u64{0};

struct FaultScope {
  explicit FaultScope(std::function<void(const std::string&, void*, u64)> fault) {
    orl::g_fault = std::move(fault);
  }
  ~FaultScope() { orl::g_fault = nullptr; }
};

// A number with its words and the text that its file must hold.
struct Sample {
  Sample(Random& random, u32 radix, u64 word_count, u64 integer) : words(word_count) {
    for (u64& word : words) {
      word = random.edge_word<u64>();
      if (word > orl::largest_word(radix)) word = orl::largest_word(radix) - random.below(3);
    }
    number = {radix, integer, words.data(), words.size()};
    Mpz all(integer), scale;
    const u64 width = orl::digits_per_word(radix);
    mpz_ui_pow_ui(scale, radix, width);
    for (u64 i = word_count; i-- > 0;) all = all * scale + Mpz(words[i]);
    text.resize(mpz_sizeinbase(all, static_cast<int>(radix)) + 2);
    mpz_get_str(text.data(), static_cast<int>(radix), all);
    text.resize(text.find('\0'));
    const u64 fraction = word_count * width;
    if (text.size() <= fraction) text.insert(0, fraction + 1 - text.size(), '0');
    text.insert(text.size() - fraction, ".");
  }
  std::string first() const { return text.substr(0, text.find('.') + 1); }
  std::string cut(u64 digits) const { return text.substr(0, first().size() + digits); }

  std::vector<u64> words;
  DigitWords number;
  std::string text;
};

u64 residue_of(std::string text, u32 radix) {
  text.erase(text.find('.'), 1);
  Mpz integer;
  mpz_set_str(integer, text.c_str(), static_cast<int>(radix));
  return orl::test::residue_m61(integer);
}

class DigitOutput : public testing::Test {
 protected:
  OutputContext context(orl::LinearHeapBuffer buffer, orl::Parallelizer& framework, u64 tds) {
    return {{framework, tds}, orl::silent_status(), events_, buffer};
  }
  OutputContext context() { return context(window_.buffer(), reversed_, 1); }
  OutputTarget target(u64 digits_per_file) { return {"Pi", "Test", folder_.path(), digits_per_file}; }
  bool any_finished() const {
    for (const std::string& name : folder_.names())
      if ((name.ends_with(".txt") || name.ends_with(".ovd")) &&
          name.find("(incomplete)") == std::string::npos)
        return true;
    return false;
  }

  Random random_;
  testing::ScopedTrace trace_{__FILE__, __LINE__, random_.replay()};
  TemporaryFolder folder_;
  orl::EventLog events_;
  orl::test::ReverseOrder reversed_;
  GuardedBlock window_{1 << 20};
};

TEST_F(DigitOutput, WritesTheDigitsOfTheWordsAndKnowsTheirRecord) {
  const auto pool = orl::create_framework("pushpool");
  pool->reserve();
  GuardedBlock least(output_buffer_bytes());
  for (const u32 radix : {10u, 16u}) {
    for (const u64 words : {u64{8}, u64{600}, u64{20000}}) {
      const u64 integers[] = {0, 3, 1000, ~u64{0}};
      const Sample sample(random_, radix, words, integers[random_.below(4)]);
      const u64 all = words * orl::digits_per_word(radix);
      for (const u64 digits : {all, all - 1, all - 19, u64{100}}) {
        SCOPED_TRACE(std::to_string(radix) + " " + std::to_string(digits));
        for (const u64 tds : {u64{1}, u64{4}}) {
          const OutputContext c =
              context(tds == 1 ? least.buffer() : window_.buffer(), tds == 1 ? reversed_ : *pool, tds);
          const OutputResult result = write_digits(c, sample.number, digits, target(0));
          const std::string expected = sample.cut(digits);
          EXPECT_EQ(result.path, folder_.file(radix == 10 ? "Pi - Dec - Test.txt" : "Pi - Hex - Test.txt"));
          EXPECT_TRUE(read_file(result.files->unfinished_path()) == expected);
          EXPECT_EQ(result.first_digits, sample.first());
          EXPECT_EQ(result.last_digits.text(), expected.substr(expected.size() - 100));
          EXPECT_EQ(result.hash, residue_of(expected, radix));
          EXPECT_EQ(result.digit_hash, result.hash);
          for (u32 digit = 0; digit < radix; digit++)
            EXPECT_EQ(result.counts.count(digit),
                      static_cast<u64>(std::count(expected.begin() + static_cast<s64>(sample.first().size()),
                                                  expected.end(), "0123456789abcdef"[digit])));
          read_check(c, result);
          verify_digits(c, sample.number, result);

          const OutputResult processed = process_digits(c, sample.number, digits);
          EXPECT_TRUE(processed.path.empty());
          EXPECT_EQ(processed.hash, result.hash);
          EXPECT_EQ(processed.digit_hash, result.hash);
          EXPECT_EQ(processed.counts, result.counts);
          EXPECT_EQ(processed.last_digits.text(), result.last_digits.text());
          EXPECT_EQ(result.sha256->sha256(), orl::sha256(expected.substr(sample.first().size())));
          EXPECT_EQ(processed.sha256->sha256(), result.sha256->sha256());
          EXPECT_EQ(processed.sha256->first_index(), 1u);
          EXPECT_EQ(processed.sha256->count(), digits);
        }
      }
    }
  }
  EXPECT_TRUE(least.intact());
  EXPECT_TRUE(window_.intact());
  pool->reset();
}

TEST_F(DigitOutput, ReadsBackThroughOnePage) {
  const Sample sample(random_, 10, 300, 3);
  GuardedBlock page(4096 + 8320), less(4096 + 8320 - 64);
  for (const u64 digits_per_file : {u64{0}, u64{1000}, kOneFile}) {
    const OutputResult result = write_digits(context(), sample.number, 5600, target(digits_per_file));
    read_check(context(page.buffer(), reversed_, 1), result);
    read_check(context(page.buffer(), reversed_, 3), result);
    EXPECT_THROW(read_check(context(less.buffer(), reversed_, 1), result), orl::BufferTooSmallException);
  }
  EXPECT_TRUE(page.intact());
}

TEST_F(DigitOutput, TakesBothFormsOfTheZeroResidueForOne) {
  const std::vector<u64> zeros(10, 0);
  const DigitWords number{10, orl::kHashModulus, zeros.data(), zeros.size()};
  const OutputResult result = write_digits(context(), number, 150, target(0));
  EXPECT_EQ(result.hash, 0u);
  EXPECT_EQ(result.first_digits, "2305843009213693951.");
  read_check(context(), result);
}

TEST_F(DigitOutput, RefusesMoreDigitsThanTheWordsHold) {
  const Sample sample(random_, 10, 10, 3);
  EXPECT_THROW(write_digits(context(), sample.number, 191, target(0)), orl::InvalidParametersException);
  EXPECT_TRUE(folder_.names().empty());
}

// The exception reaches the caller though the file is written in a branch, and what was written is taken
// away.
TEST_F(DigitOutput, TellsTheCallerOfAFullDisk) {
  const Sample sample(random_, 10, 20000, 3);
  for (const char* key : {"none", "spawn", "pushpool"}) {
    const auto framework = orl::create_framework(key);
    framework->reserve();
    for (const u64 digits_per_file : {u64{0}, u64{100000}, kOneFile}) {
      FakeFileCalls calls;
      calls.free_bytes = 100000;
      try {
        write_digits(context(window_.buffer(), *framework, 4), sample.number, 380000,
                     target(digits_per_file));
        ADD_FAILURE() << "nothing was thrown";
      } catch (const orl::FileIO::FileException& e) {
        EXPECT_NE(e.message().find("Disk is Full"), std::string::npos) << e.message();
      }
      for (const std::string& name : folder_.names()) EXPECT_EQ(name.find('.'), std::string::npos) << name;
    }
    framework->reset();
  }
}

struct Ending {
  int status;
  std::string output;
};

TEST_F(DigitOutput, EndsTheProgramWhenTheFileIsNotWhatWasWritten) {
  const Sample sample(random_, 16, 300, 3);
  const u64 digits = 4000;
  const auto damaged = [&](u64 digits_per_file, const std::function<void(const std::string& path)>& damage) {
    const auto child = run_child("\n", [&]() -> int {
      const OutputResult result = write_digits(context(), sample.number, digits, target(digits_per_file));
      damage(result.files->unfinished_path());
      orl::LinearConsoleNode console;
      try {
        read_check({{reversed_, 1}, console, events_, window_.buffer()}, result);
      } catch (const orl::Exception& e) {
        orl::console::println("= " + e.message());
        return 1;
      }
      return 0;
    });
    EXPECT_EQ(child.status, 1) << child.output;
    EXPECT_EQ(child.output.find("Verifying Hexadecimal Output:\n"), 0u) << child.output;
    EXPECT_FALSE(any_finished());
    return child.output;
  };
  const auto change = [](u64 at, char c) {
    return [=](const std::string& path) {
      std::string text = read_file(path);
      text[at] = c;
      orl::test::write_file(path, text);
    };
  };
  const char other = sample.text[1000] == '7' ? '8' : '7';
  std::string wrong = sample.cut(digits);
  wrong[1000] = other;
  const std::string output = damaged(0, change(1000, other));
  EXPECT_NE(
      output.find("Pre-Write Hash = " + std::to_string(residue_of(sample.cut(digits), 16)) +
                  "\nRead-Back Hash = " + std::to_string(residue_of(wrong, 16)) + "\nPre-Write Counts = "),
      std::string::npos)
      << output;
  EXPECT_NE(output.find("\nRead-Back Counts = "), std::string::npos);
  EXPECT_NE(output.find("\nDigit output failed. Metadata cross-check doesn't match.\n"), std::string::npos);
  // Digits in another order: only their hash tells them apart.
  const std::string swapped = damaged(0, [](const std::string& path) {
    std::string text = read_file(path);
    std::swap(text[1000],
              *std::find_if(text.begin() + 1001, text.end(), [&](char c) { return c != text[1000]; }));
    orl::test::write_file(path, text);
  });
  EXPECT_NE(swapped.find("Metadata cross-check doesn't match."), std::string::npos) << swapped;
  // Digits that are the same integer modulo 2^61 - 1: only their counts tell them apart.
  const std::string congruent = damaged(0, [](const std::string& path) {
    std::string text = read_file(path);
    const std::size_t at = text.size() - 20;
    const Mpz modulus(orl::kHashModulus);
    Mpz value;
    mpz_set_str(value, text.c_str() + at, 16);
    value = mpz_cmp(value, modulus) < 0 ? value + modulus : value - modulus;
    gmp_snprintf(text.data() + at, 21, "%020Zx", static_cast<mpz_srcptr>(value));
    orl::test::write_file(path, text);
  });
  EXPECT_NE(congruent.find("Metadata cross-check doesn't match."), std::string::npos) << congruent;
  EXPECT_NE(damaged(0, change(0, '2')).find("Metadata cross-check doesn't match."), std::string::npos);
  EXPECT_NE(damaged(0, change(0, 'g')).find("= Invalid hexadecimal digit in first digits."),
            std::string::npos);
  EXPECT_NE(damaged(0, change(1, '/'))
                .find("= A decimal place was not found within the first 63 bytes of the file."),
            std::string::npos);
  EXPECT_NE(damaged(0, change(2000, 'g')).find("= Invalid Digit"), std::string::npos);
  EXPECT_NE(damaged(0, [](const std::string& path) { std::filesystem::resize_file(path, 3000); })
                .find("= Out of range."),
            std::string::npos);
  EXPECT_NE(damaged(kOneFile, change(30, 'f')).find("= No version # found."), std::string::npos);
  EXPECT_NE(damaged(kOneFile, change(5, 'f')).find("= Inconsistent Metadata: "), std::string::npos);
  EXPECT_NE(damaged(1000, [](const std::string& path) { std::filesystem::remove(path); }).find("= "),
            std::string::npos);
}

TEST_F(DigitOutput, EndsTheProgramWhenAWordOrACountChangesUnderIt) {
  Sample sample(random_, 16, 300, 3);
  const u64 digits = 4700;
  enum class Change { kWordBeforeTheDigits, kWordBehindThem, kCount };
  for (const Change change : {Change::kWordBeforeTheDigits, Change::kWordBehindThem, Change::kCount}) {
    const auto child = run_child("\n", [&]() -> int {
      OutputResult result;
      {
        const FaultScope fault([&](const std::string& site, void* data, u64 bytes) {
          if (change == Change::kWordBeforeTheDigits && site == "digit words")
            static_cast<u8*>(data)[bytes / 2] ^= 1;
        });
        result = write_digits(context(), sample.number, digits, target(0));
      }
      if (change == Change::kWordBehindThem) sample.words[150] ^= 1;
      const u8 digit = 7;
      if (change == Change::kCount) result.counts.append(&digit, 1);
      orl::LinearConsoleNode console;
      verify_binary_output({{reversed_, 1}, console, events_, window_.buffer()}, sample.number, result);
      return 0;
    });
    EXPECT_EQ(child.status, 1);
    EXPECT_TRUE(child.output.starts_with("Verifying Binary Output:\n")) << child.output;
    EXPECT_NE(child.output.find("\nBefore Hash = " + std::to_string(residue_of(sample.cut(digits), 16)) +
                                "\nAfter  Hash = "),
              std::string::npos)
        << child.output;
    EXPECT_NE(child.output.find("\nData Corruption Detected: Checksum Mismatch\n"), std::string::npos);
    EXPECT_FALSE(any_finished());
  }
}

TEST_F(DigitOutput, ChecksTheFirstDigitsOfADecimalFile) {
  const Sample sample(random_, 10, 30, 314);
  const auto child = run_child("\n", [&]() -> int {
    const FaultScope fault([&](const std::string& site, void* data, u64 bytes) {
      if (site != "digit file") return;
      const std::string path(static_cast<const char*>(data), bytes);
      std::string text = read_file(path);
      text[1] = 'a';
      orl::test::write_file(path, text);
    });
    const OutputResult result = write_digits(context(), sample.number, 500, target(0));
    try {
      read_check(context(), result);
    } catch (const orl::InvalidParametersException& e) {
      return e.message() == "Invalid decimal digit in first digits." ? 0 : 2;
    }
    return 3;
  });
  EXPECT_EQ(child.status, 0);
  EXPECT_FALSE(any_finished());
}

}  // namespace
}  // namespace orvane
