#include <gtest/gtest.h>

#include "config/parser.h"
#include "core/exceptions.h"
#include "session/constant.h"
#include "session/parameters.h"
#include "support/files.h"

namespace orvane {
namespace {

using orl::InvalidParametersException;

std::unique_ptr<Constant> make(const char* word) { return make_constant(constant_index(word)); }

template <class Body>
std::string message_of(Body&& body) {
  try {
    body();
  } catch (const orl::Exception& e) {
    return e.message();
  }
  return "nothing was thrown";
}

TEST(Catalogue, FindsEveryWordOfTheCommandLine) {
  const std::pair<const char*, u64> words[] = {
      {"sqrt", 0},       {"phi", 1},   {"goldenratio", 1}, {"e", 2},       {"pi", 3},
      {"log", 4},        {"apery", 5}, {"zeta3", 5},       {"zeta(3)", 5}, {"catalan", 6},
      {"lemniscate", 7}, {"gamma", 8}, {"brent", 9},       {"custom", 10}};
  for (const auto& [word, index] : words) {
    EXPECT_EQ(constant_index(word), index) << word;
    EXPECT_EQ(static_cast<u64>(make(word)->index()), index);
  }
  EXPECT_EQ(message_of([] { constant_index("Pi"); }), "Invalid Constant: Pi");
  EXPECT_EQ(message_of([] { constant_index(""); }), "Invalid Constant: ");
  EXPECT_EQ(make_constant(11), nullptr);
}

TEST(Catalogue, NamesItsRowsAndAlgorithms) {
  // Names of files and reports, by which users find their digits.
  const struct {
    const char *word, *key, *name, *algorithm, *algorithm_short, *algorithm_long;
  } rows[] = {
      {"sqrt", "sqrt", "Sqrt(2)", "newton", "Newton", "Newton's Method"},
      {"phi", "goldenratio", "Golden Ratio", "newton", "Newton", "Newton's Method"},
      {"e", "e", "e", "exp(1)", "exp(1)", "Taylor Series of exp(1)"},
      {"e", "e", "e", "exp(-1)", "exp(-1)", "Taylor Series of exp(-1)"},
      {"pi", "pi", "Pi", "chudnovsky", "Chudnovsky", "Chudnovsky (1989)"},
      {"pi", "pi", "Pi", "ramanujan", "Ramanujan", "Ramanujan (1910)"},
      {"pi", "pi", "Pi", "chudnovsky-reduced", "Chudnovsky (reduced)", "Chudnovsky (1989) (reduced memory)"},
      {"pi", "pi", "Pi", "ramanujan-reduced", "Ramanujan (reduced)", "Ramanujan (1910) (reduced memory)"},
      {"zeta3", "zeta3", "Zeta(3)", "az", "Amdeberhan-Zeilberger (1997)", "Amdeberhan-Zeilberger (1997)"},
      {"catalan", "catalan", "Catalan", "huvent", "Huvent", "Huvent (2006)"},
      {"lemniscate", "lemniscate", "Lemniscate", "sebah", "Sebah's formula", "Sebah's formula"},
      {"lemniscate", "lemniscate", "Lemniscate", "singular", "Singular value", "Singular value"},
      {"log", "log", "Log(2)", "zuniga", "Zuniga", "Zuniga (2023)"},
      {"log", "log", "Log(2)", "machin-secondary", "Machin (secondary)",
       "Secondary Machin-like Formula (2 terms)"},
  };
  for (const auto& row : rows) {
    const auto constant = make(row.word);
    constant->set_algorithm(row.algorithm);
    EXPECT_STREQ(constant->key(), row.key);
    EXPECT_EQ(constant->name(), row.name);
    EXPECT_EQ(constant->algorithm_key(), row.algorithm);
    EXPECT_EQ(constant->algorithm_short(), row.algorithm_short);
    EXPECT_EQ(constant->algorithm_long(), row.algorithm_long);
  }
  EXPECT_EQ(make("zeta(3)")->name_long(), "Zeta(3) - Apery's Constant");
  for (u64 i = 0; i < kConstantCount; i++) {
    const auto constant = make_constant(i);
    EXPECT_STREQ(catalogue()[i].key, constant->key());
    EXPECT_EQ(constant->precision(), 100u);
    EXPECT_EQ(constant->algorithm_index(), constant->default_algorithm());
    EXPECT_EQ(constant->max_digits(), 1000000000000050u);
    EXPECT_EQ(message_of([&] { constant->set_algorithm("fly"); }), "Invalid Algorithm: fly");
    EXPECT_EQ(constant->algorithm_index(), constant->default_algorithm());
    // Either it can be planned or it says in one line that it cannot.
    if (constant->unavailable().empty())
      EXPECT_GT(constant->make_ram(50, 1)->need().out_words, 0u);
    else
      EXPECT_EQ(constant->unavailable().find('\n'), std::string::npos);
  }
}

TEST(Constants, CheckTheArgumentsOfTheCommandLine) {
  const struct {
    const char *word, *argument, *message;
  } rows[] = {
      {"sqrt", "2", nullptr},
      {"sqrt", "18446744073709551615", nullptr},
      {"sqrt", "1", "Argument must be greater than 1."},
      {"sqrt", "0", "Argument must be greater than 1."},
      {"sqrt", "16", "16 is a perfect square."},
      {"sqrt", "18446744065119617025", "18446744065119617025 is a perfect square."},  // (2^32 - 1)^2
      {"sqrt", "18446744065119617026", nullptr},
      {"sqrt", "4503599761588225", "4503599761588225 is a perfect square."},  // (2^26 + 1)^2
      {"sqrt", "4503599761588226", nullptr},
      {"sqrt", "18446744073709551616", "18446744073709551616 is out of range."},
      {"sqrt", "2x", "The constant \"sqrt\" needs a whole number as its argument, such as sqrt:2."},
      {"sqrt", "", "The constant \"sqrt\" needs a whole number as its argument, such as sqrt:2."},
      {"log", "2", nullptr},
      {"log", "2147483647", nullptr},
      {"log", "1", "1 is out of range."},
      {"log", "2147483648", "2147483648 is out of range."},
      {"brent", "1", nullptr},
      {"brent", "63", nullptr},
      {"brent", "0", "Argument must be greater than 0."},
      {"brent", "64", "64 is out of range."},
      {"pi", "3", "The constant \"pi\" takes no argument: 3"},
      {"custom", "", "The constant \"custom\" needs a formula file: custom:<file>."},
  };
  for (const auto& row : rows)
    EXPECT_EQ(message_of([&] { make(row.word)->set_argument(row.argument); }),
              row.message ? row.message : "nothing was thrown")
        << row.word << " " << row.argument;
  const auto constant = make("sqrt");
  constant->set_argument("3");
  EXPECT_THROW(constant->set_argument("4"), InvalidParametersException);
  EXPECT_EQ(constant->name(), "Sqrt(3)");
}

// The name of the algorithm, the refusal and the plan ask one function for n.
TEST(Constants, OfEulerTakeAnNThatServesTheirPrecision) {
  const auto gamma = make("gamma"), brent = make("brent");
  for (const char* algorithm : {"brent-refined", "brent-original"})
    for (const u64 digits : {100, 35000, 36000, 1000000}) {
      gamma->set_algorithm(algorithm), brent->set_algorithm(algorithm);
      gamma->set_precision(digits), brent->set_precision(digits);
      u64 smallest = 1;
      for (; brent->set_argument(std::to_string(smallest)), !brent->unavailable().empty(); ++smallest)
        EXPECT_EQ(brent->unavailable().find("k = " + std::to_string(smallest) + " is too small"), 0u);
      EXPECT_EQ(gamma->algorithm_long(), brent->algorithm_long());
      const u64 words = Precision{digits}.words();
      EXPECT_EQ(gamma->make_ram(words, 1)->need().ram_bytes, brent->make_ram(words, 1)->need().ram_bytes);
    }
}

TEST(Constants, GoThroughAConfigurationObject) {
  for (u64 i = 0; i < kConstantCount; i++) {
    const auto constant = make_constant(i);
    if (constant->takes_argument() && i != 10) constant->set_argument("7");
    if (!constant->algorithms().empty()) constant->set_algorithm(constant->algorithms().back().key);
    orl::Object object;
    constant->to_object(object);
    const auto other = make_constant(i);
    other->from_object(object);
    EXPECT_EQ(other->name(), constant->name());
    EXPECT_EQ(other->algorithm_long(), constant->algorithm_long());
    orl::Object report;
    other->describe(report);
    EXPECT_EQ(report.get_object("Constant").get_string("Value"), constant->key());
    EXPECT_EQ(report.get_object("Algorithm").get_string("DisplayText"), constant->algorithm_long());
  }
}

// Log(2) has a series of its own, which a menu of another logarithm does not offer.
TEST(Constants, HaveTheAlgorithmsThatTheirArgumentAllows) {
  const auto log = make("log");
  EXPECT_EQ(log->algorithm_key(), "zuniga");
  log->set_algorithm("zuniga");
  log->set_argument("6");
  EXPECT_EQ(log->algorithm_key(), "machin-primary");
  EXPECT_EQ(log->algorithms().size(), 2u);
  EXPECT_NE(message_of([&] { log->set_algorithm("zuniga"); }), "nothing was thrown");
  log->set_algorithm("machin-secondary");
  log->set_argument("2");
  EXPECT_EQ(log->algorithm_key(), "machin-secondary");
}

TEST(Constants, CheckTheArgumentsOfAFile) {
  const struct {
    const char *word, *algorithm;
    orl::s64 argument;
    const char* message;
  } rows[] = {
      {"sqrt", "newton", 0, "Argument: 0 is out of range."},
      {"sqrt", "newton", -5, "Argument: -5 is out of range."},
      {"sqrt", "newton", 1, "Argument: 1 is a perfect square."},
      {"sqrt", "fly", 3, "Algorithm: Invalid Algorithm: fly"},
      {"log", "machin-primary", 1, "Argument: 1 is out of range."},
      {"log", "machin-primary", 2147483648, "Argument: 2147483648 is out of range."},
      {"log", "zuniga", 3,
       "Algorithm: zuniga is an algorithm for Log(2) alone: Log(3) has its Machin-like formulas."},
      {"brent", "brent-refined", 64, "Argument: 64 is a out of range."},
      {"brent", "brent-refined", -1, "Argument: -1 is a out of range."},
      {"brent", "brent-refined", 0, nullptr},
  };
  for (const auto& row : rows) {
    orl::Object inner, object;
    inner.add_string("Constant", row.word);
    inner.add_string("Algorithm", row.algorithm);
    inner.add_integer("Argument", row.argument);
    object.add_object("Constant", std::move(inner));
    const auto constant = make(row.word);
    constant->set_argument("5");
    const std::string before = constant->name() + constant->algorithm_long();
    EXPECT_EQ(message_of([&] { constant->from_object(object); }),
              row.message ? row.message : "nothing was thrown");
    if (row.message) {
      EXPECT_EQ(constant->name() + constant->algorithm_long(), before);
    }
  }
}

TEST(Constants, TakeTheirNamesFromAFormulaFile) {
  orl::test::TemporaryFolder folder;
  const auto load = [&](const std::string& name) {
    orl::test::write_file(folder.file("x.cfg"), "{ Constant : { NameShort : \"" + name +
                                                    "\" NameLong : \"long\" AlgorithmShort : \"as\" "
                                                    "AlgorithmLong : \"al\" Formula : { } } }");
    const auto constant = make("custom");
    constant->set_argument(folder.file("x.cfg"));
    return constant->name() + " " + constant->algorithm_short();
  };
  EXPECT_EQ(load(std::string(50, 'x')), std::string(50, 'x') + " as");
  EXPECT_EQ(message_of([&] { load(std::string(51, 'x')); }),
            "Line 1: Constant.NameShort: String cannot be longer than 50 characters.");
  EXPECT_NE(message_of([&] { make("custom")->set_argument(folder.file("none")); }), "nothing was thrown");
}

}  // namespace
}  // namespace orvane
