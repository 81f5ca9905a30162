// Whole runs of the program, their digits held against MPFR's.
#include <gmp.h>
#include <gtest/gtest.h>
#include <mpfr.h>

#include <array>
#include <map>

#include "app/process.h"

namespace orvane::test {
namespace {

constexpr std::size_t kLargest = 1000000;

// Floor(x * radix^digits) of a constant as text, with the point; MPFR computes each constant once, with bits
// to spare.
class Oracle {
 public:
  std::string text(const std::string& constant, int radix, std::size_t digits) {
    mpz_t scaled;
    mpz_init(scaled);
    mpfr_t product;
    mpfr_init2(product, kBits);
    mpz_ui_pow_ui(scaled, static_cast<unsigned long>(radix), digits);
    mpfr_mul_z(product, value(constant), scaled, MPFR_RNDZ);
    mpfr_get_z(scaled, product, MPFR_RNDZ);
    std::string text(mpz_sizeinbase(scaled, radix) + 2, '\0');
    mpz_get_str(text.data(), radix, scaled);
    text.resize(text.find('\0'));
    if (text.size() <= digits) text.insert(0, digits + 1 - text.size(), '0');
    text.insert(text.size() - digits, ".");
    mpfr_clear(product);
    mpz_clear(scaled);
    return text;
  }

 private:
  static constexpr mpfr_prec_t kBits = static_cast<mpfr_prec_t>(kLargest * 4 + 1000);

  mpfr_srcptr value(const std::string& constant) {
    auto& entry = values_[constant];
    if (entry.ready) return entry.number;
    entry.ready = true;
    mpfr_init2(entry.number, kBits);
    if (constant == "pi") {
      mpfr_const_pi(entry.number, MPFR_RNDZ);
    } else if (constant == "e") {
      mpfr_t one;
      mpfr_init2(one, 2);
      mpfr_set_ui(one, 1, MPFR_RNDN);
      mpfr_exp(entry.number, one, MPFR_RNDZ);
      mpfr_clear(one);
    } else if (constant == "phi") {
      mpfr_sqrt_ui(entry.number, 5, MPFR_RNDZ);
      mpfr_add_ui(entry.number, entry.number, 1, MPFR_RNDZ);
      mpfr_div_2ui(entry.number, entry.number, 1, MPFR_RNDZ);
    } else if (constant == "lemniscate") {
      mpfr_t mean;
      mpfr_init2(mean, kBits);
      mpfr_sqrt_ui(entry.number, 2, MPFR_RNDZ);
      mpfr_set_ui(mean, 1, MPFR_RNDZ);
      mpfr_agm(mean, mean, entry.number, MPFR_RNDZ);
      mpfr_const_pi(entry.number, MPFR_RNDZ);
      mpfr_mul_2ui(entry.number, entry.number, 1, MPFR_RNDZ);
      mpfr_div(entry.number, entry.number, mean, MPFR_RNDZ);
      mpfr_clear(mean);
    } else if (constant.starts_with("log:")) {
      mpfr_log_ui(entry.number, std::stoul(constant.substr(4)), MPFR_RNDZ);
    } else {
      mpfr_sqrt_ui(entry.number, std::stoul(constant.substr(constant.find(':') + 1)), MPFR_RNDZ);
    }
    return entry.number;
  }

  struct Entry {
    mpfr_t number;
    bool ready = false;
  };
  std::map<std::string, Entry> values_;
};

Oracle& oracle() {
  static Oracle instance;
  return instance;
}

struct Case {
  const char* constant;
  const char* algorithm;
  const char* file_name;  // "<constant> - @ - <algorithm>", @ being the radix
};

constexpr Case kCases[] = {
    {"pi", "chudnovsky", "Pi - @ - Chudnovsky"},
    {"pi", "ramanujan", "Pi - @ - Ramanujan"},
    {"pi", "chudnovsky-reduced", "Pi - @ - Chudnovsky (reduced)"},
    {"pi", "ramanujan-reduced", "Pi - @ - Ramanujan (reduced)"},
    {"e", "exp(1)", "e - @ - exp(1)"},
    {"e", "exp(-1)", "e - @ - exp(-1)"},
    {"sqrt:2", "newton", "Sqrt(2) - @ - Newton"},
    {"sqrt:2000000011", "newton", "Sqrt(2000000011) - @ - Newton"},
    {"phi", "newton", "Golden Ratio - @ - Newton"},
    {"log:2", "zuniga", "Log(2) - @ - Zuniga"},
    {"log:10", "machin-primary", "Log(10) - @ - Machin (primary)"},
    {"lemniscate", "singular", "Lemniscate - @ - Singular value"},
};

// The lines of a report that say what the digits are.
std::string proof_lines(const std::string& output) {
  std::string lines;
  for (const char* label : {"Dec Counts: ", "Hex Counts: ", "Dec Hash: ", "Hex Hash: ", "SHA256-dec("}) {
    const auto begin = output.find(label);
    if (begin != std::string::npos) lines += output.substr(begin, output.find('\n', begin) - begin + 1);
  }
  return lines;
}

std::string counts_of(const std::string& text, int radix) {
  std::array<std::size_t, 16> counts{};
  for (char c : text.substr(text.find('.') + 1))
    counts[static_cast<std::size_t>(c <= '9' ? c - '0' : c - 'a' + 10)]++;
  std::string line;
  for (int i = 0; i < radix; i++)
    line += (i ? " " : "") + std::to_string(counts[static_cast<std::size_t>(i)]);
  return line;
}

// Floor(x * radix^digits) modulo 2^61 - 1 of the text without its point.
std::string hash_of(std::string text, int radix) {
  text.erase(text.find('.'), 1);
  mpz_t number;
  mpz_init_set_str(number, text.c_str(), radix);
  const unsigned long hash = mpz_fdiv_ui(number, (1ul << 61) - 1);
  mpz_clear(number);
  return std::to_string(hash);
}

// One run in a folder of its own; its files and the figures that it prints must be the oracle's.
std::string run_and_compare(const Case& c, std::size_t digits, std::vector<std::string> options) {
  SCOPED_TRACE(std::string(c.constant) + " " + c.algorithm + " " + std::to_string(digits));
  TemporaryFolder folder;
  std::vector<std::string> arguments = {"custom",
                                        c.constant,
                                        std::string("-algorithm:") + c.algorithm,
                                        "-dec:" + std::to_string(digits),
                                        "-hex:" + std::to_string(digits),
                                        "-o",
                                        folder.path()};
  arguments.insert(arguments.end(), options.begin(), options.end());
  const Outcome outcome = run_orvane(arguments);
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  for (const int radix : {10, 16}) {
    std::string name = c.file_name;
    name.replace(name.find('@'), 1, radix == 10 ? "Dec" : "Hex");
    const std::string expected = oracle().text(c.constant, radix, digits);
    EXPECT_TRUE(read_file(folder.file(name + ".txt")) == expected) << "wrong digits, radix " << radix;
    EXPECT_NE(outcome.output.find(std::string(radix == 10 ? "Dec" : "Hex") +
                                  " Counts: " + counts_of(expected, radix)),
              std::string::npos);
    EXPECT_NE(outcome.output.find("mod (2^61 - 1) = " + hash_of(expected, radix)), std::string::npos);
  }
  EXPECT_EQ(folder.names().size(), 2u) << "only the two digit files may remain";
  return proof_lines(outcome.output);
}

class Digits : public testing::TestWithParam<Case> {};

TEST_P(Digits, AreRightAtEverySize) {
  for (const std::size_t digits : {std::size_t{100}, std::size_t{101}, std::size_t{999}, std::size_t{1000},
                                   std::size_t{12345}, kLargest})
    run_and_compare(GetParam(), digits, {"-TD:2", "-PF:pushpool"});
}

TEST_P(Digits, DoNotDependOnTasksOrFrameworks) {
  for (const std::size_t digits : {std::size_t{101}, std::size_t{12345}, kLargest}) {
    std::string first;
    for (const char* framework : {"none", "spawn", "cppasync", "pushpool", "tbb"}) {
      for (const char* tasks : {"1", "2", "7", "64"}) {
        // At the largest size each framework and each count of tasks runs once.
        if (digits == kLargest && (std::string(framework) == "pushpool") == (std::string(tasks) == "7"))
          continue;
        if (digits == kLargest && std::string(framework) != "pushpool" && std::string(tasks) != "7") continue;
        SCOPED_TRACE(std::string(framework) + " " + tasks);
        const std::string proof = run_and_compare(
            GetParam(), digits, {std::string("-PF:") + framework, std::string("-TD:") + tasks});
        if (first.empty()) first = proof;
        EXPECT_EQ(proof, first);
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Constants, Digits, testing::ValuesIn(kCases), [](const auto& row) {
  std::string name = std::string(row.param.constant) + "_" + row.param.algorithm;
  for (char& ch : name)
    if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
  return name;
});

TEST(CompressedDigits, HoldTheSameDigitsAsText) {
  TemporaryFolder folder;
  const Outcome outcome =
      run_orvane({"custom", "e", "-dec:2500000", "-C:1000000", "-o", folder.path(), "-TD:7", "-PF:spawn"});
  ASSERT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_EQ(folder.names(),
            (std::vector<std::string>{"e - Dec - exp(1)", "e - Dec - exp(1)/e - Dec - exp(1) - 0.ovd",
                                      "e - Dec - exp(1)/e - Dec - exp(1) - 1.ovd",
                                      "e - Dec - exp(1)/e - Dec - exp(1) - 2.ovd"}));
  // The first word of the first file, behind the header's zero byte: 19 digits.
  const std::string file = read_file(folder.file("e - Dec - exp(1)/e - Dec - exp(1) - 0.ovd"));
  const auto data = file.find('\0', file.find("EndHeader")) + 1;
  std::uint64_t word = 0;
  for (int i = 7; i >= 0; i--)
    word = word << 8 | static_cast<unsigned char>(file[data + static_cast<std::size_t>(i)]);
  EXPECT_EQ(std::to_string(word), oracle().text("e", 10, 19).substr(2));
}

}  // namespace
}  // namespace orvane::test
