// The table of constants, and what a Constant does with its row.
#include <algorithm>
#include <vector>

#include "config/located.h"
#include "constants/e.h"
#include "constants/euler.h"
#include "constants/lemniscate.h"
#include "constants/one_series.h"
#include "constants/pi.h"
#include "constants/roots.h"
#include "core/exceptions.h"
#include "session/constant_kinds.h"

namespace orvane {
namespace {

using orl::InvalidParametersException;
using Plan = std::unique_ptr<orl::ConstantPlan<Word>>;

using Store = orl::RamStore<Word>;

Plan plan_sqrt(const Constant& constant, u64 precision_words, u64 tds) {
  return orl::make_sqrt<Store>({constant.argument(), 1}, precision_words, tds);
}
Plan plan_golden_ratio(const Constant&, u64 precision_words, u64 tds) {
  return orl::make_golden_ratio<Store>(1, precision_words, tds);
}
template <orl::ETaylor Series>
Plan plan_e(const Constant&, u64 precision_words, u64 tds) {
  return orl::make_e<Store>({Series, 1}, precision_words, tds);
}
template <orl::PiSeries Series, orl::SeriesMemory Memory>
Plan plan_pi(const Constant&, u64 precision_words, u64 tds) {
  return orl::make_pi<Store>({Series, 1, Memory}, precision_words, tds);
}
template <orl::LemniscateAlgorithm Algorithm>
Plan plan_lemniscate(const Constant&, u64 precision_words, u64 tds) {
  return orl::make_lemniscate<Store>({Algorithm, 1}, precision_words, tds);
}
template <orl::OneSeries Series>
Plan plan_one_series(const Constant&, u64 precision_words, u64 tds) {
  return orl::make_one_series<Store>(Series, 1, precision_words, tds);
}

template <orl::EulerVariant Variant>
Plan plan_gamma(const Constant& constant, u64 precision_words, u64 tds) {
  // 0 for the constant that chooses its parameter.
  return orl::make_euler<Store>({Variant, static_cast<orl::u32>(constant.argument())}, precision_words, tds);
}

using orl::ETaylor, orl::EulerVariant, orl::LemniscateAlgorithm, orl::OneSeries, orl::PiSeries,
    orl::SeriesMemory;

constexpr AlgorithmRow kSqrt[] = {
    {"newton", "Newton", "Newton's Method", "1st order Newton's Method", plan_sqrt}};
constexpr AlgorithmRow kGoldenRatio[] = {
    {"newton", "Newton", "Newton's Method", "1st order Newton's Method", plan_golden_ratio}};
constexpr AlgorithmRow kE[] = {
    {"exp(1)", "exp(1)", "Taylor Series of exp(1)", "", plan_e<ETaylor::kPlain>},
    {"exp(-1)", "exp(-1)", "Taylor Series of exp(-1)", "Taylor Series of exp(-1)    (same speed)\n",
     plan_e<ETaylor::kAlternating>},
};
constexpr AlgorithmRow kPi[] = {
    {"chudnovsky", "Chudnovsky", "Chudnovsky (1989)", "Chudnovsky (1989)    (fastest)",
     plan_pi<PiSeries::kChudnovsky, SeriesMemory::kFast>},
    {"ramanujan", "Ramanujan", "Ramanujan (1910)", "Ramanujan (1910)     (~40% slower)",
     plan_pi<PiSeries::kRamanujan, SeriesMemory::kFast>},
    {"chudnovsky-reduced", "Chudnovsky (reduced)", "Chudnovsky (1989) (reduced memory)", nullptr,
     plan_pi<PiSeries::kChudnovsky, SeriesMemory::kReduced>},
    {"ramanujan-reduced", "Ramanujan (reduced)", "Ramanujan (1910) (reduced memory)", nullptr,
     plan_pi<PiSeries::kRamanujan, SeriesMemory::kReduced>},
};
constexpr AlgorithmRow kLog[] = {
    {"machin-primary", "Machin (primary)", "Primary Machin-like Formula", "", plan_log_machin},
    {"machin-secondary", "Machin (secondary)", "Secondary Machin-like Formula", "", plan_log_machin},
    {"zuniga", "Zuniga", "Zuniga (2023)", "", plan_one_series<OneSeries::kLog2Zuniga>},
};
constexpr AlgorithmRow kZeta3[] = {
    {"wedeniwski", "Wedeniwski", "Wedeniwski (1998)", "Wedeniwski (1998)               (fastest)",
     plan_one_series<OneSeries::kZeta3Wedeniwski>},
    {"az", "Amdeberhan-Zeilberger (1997)", "Amdeberhan-Zeilberger (1997)",
     "Amdeberhan-Zeilberger (1997)    (slightly slower)",
     plan_one_series<OneSeries::kZeta3AmdeberhanZeilberger>},
    {"zuniga", "Zuniga", "Zuniga (2023)", "Zuniga (2023)               ",
     plan_one_series<OneSeries::kZeta3Zuniga>},
};
constexpr AlgorithmRow kCatalan[] = {
    {"pilehrood-short", "Pilehrood (short)", "Pilehrood (2010-short)", "Pilehrood (2010-short)    (fastest)",
     plan_one_series<OneSeries::kCatalanPilehroodShort>},
    {"pilehrood-long", "Pilehrood (long)", "Pilehrood (2010-long)", "Pilehrood (2010-long)     (1.5x slower)",
     plan_one_series<OneSeries::kCatalanPilehroodLong>},
    {"guillera", "Guillera", "Guillera (2008)", "Guillera (2008)           (1.8x slower)",
     plan_one_series<OneSeries::kCatalanGuillera>},
    {"lupas", "Lupas", "Lupas (2000)", "Lupas (2000)              (3.8x slower)",
     plan_one_series<OneSeries::kCatalanLupas>},
    {"huvent", "Huvent", "Huvent (2006)", "Huvent (2006)             (4.3x slower)",
     plan_one_series<OneSeries::kCatalanHuvent>},
    {"zuniga", "Zuniga", "Zuniga (2023)", "", plan_one_series<OneSeries::kCatalanZuniga>},
};
constexpr AlgorithmRow kLemniscate[] = {
    {"agm-pi", "AGM-Pi", "AGM-Pi", "AGM with Pi        (Can be very slow on disk.)\n",
     plan_lemniscate<LemniscateAlgorithm::kAgmPi>},
    {"gauss", "Gauss Formula", "Gauss Formula",
     "Gauss Formula      (2x slower in ram, may be faster on disk)\n",
     plan_lemniscate<LemniscateAlgorithm::kGauss>},
    {"sebah", "Sebah's formula", "Sebah's formula", "Sebah's Formula    (20% slower than Gauss)\n",
     plan_lemniscate<LemniscateAlgorithm::kSebah>},
    {"singular", "Singular value", "Singular value", "", plan_lemniscate<LemniscateAlgorithm::kSingular>},
};
constexpr AlgorithmRow kGamma[] = {
    {"brent-refined", "Brent-McMillan (refined)", "Brent-McMillan with Refinement", "",
     plan_gamma<EulerVariant::kRefined>},
    {"brent-original", "Brent-McMillan", "Brent-McMillan", "", plan_gamma<EulerVariant::kOriginal>},
};

constexpr const char* kSqrtNote =
    "\n    There are no alternate formulas for square roots. To verify sqrt(n),\n"
    "    compute sqrt(100*n) instead. The digits will be the same, but shifted\n"
    "    over by one digit.\n";
constexpr const char* kGoldenRatioNote =
    "\n    There is no alternate formula for Golden Ratio. However, a verification\n"
    "    can be done by computing sqrt(125) instead. The digits will be the same,\n"
    "    but shifted over by one digit.\n";
constexpr const char* kLemniscateNote =
    "\n            Lemniscate = 2 Pi / AGM(1, sqrt(2))\n\n"
    "            Lemniscate = 8 * ArcSinlemn(1/2) + 4 * ArcSinLemn(7/23)\n\n"
    "            Lemniscate = 8 * ArcSinlemn(2/3) - 4 * ArcSinLemn(7/137)\n";

constexpr const char* kFast = "Fast Constants:";
constexpr const char* kModerate = "Moderate Constants:";
constexpr const char* kSlow = "Slow Constants:";
constexpr const char* kOther = "Other:";

constexpr std::array<ConstantRow, kConstantCount> kCatalogue = {{
    {.index = ConstantIndex::kSqrt,
     .key = "sqrt",
     .words = {"sqrt"},
     .menu = {kFast, 'P', "Sqrt(n)", "", "  0.59"},
     .algorithm_menu = {kSqrt, kSqrtNote},
     .argument = {Argument::kWholeNumber, "Sqrt(n): n = "},
     .make = make_sqrt},
    {.index = ConstantIndex::kGoldenRatio,
     .key = "goldenratio",
     .words = {"phi", "goldenratio"},
     .menu = {kFast, 'P', "Golden Ratio", "1.618034...", "  0.57"},
     .name = "Golden Ratio",
     .algorithm_menu = {kGoldenRatio, kGoldenRatioNote}},
    {.index = ConstantIndex::kE,
     .key = "e",
     .words = {"e"},
     .menu = {kFast, 'P', "e", "2.718281...", "  3.12 / 3.75"},
     .name = "e",
     .algorithm_menu = {kE}},
    {.index = ConstantIndex::kPi,
     .key = "pi",
     .words = {"pi"},
     .menu = {kModerate, 'G', "Pi", "3.141592...", "  10.3 / 14.0"},
     .name = "Pi",
     .algorithm_menu = {kPi}},
    {.index = ConstantIndex::kLog,
     .key = "log",
     .words = {"log"},
     .menu = {kModerate, 'G', "Log(n)", "", "> 20.9"},
     .algorithm_menu = {kLog, nullptr, 0, "zuniga is for Log(2) alone and its default"},
     .argument = {Argument::kWholeNumber, "Log(n): n = "},
     .make = make_log},
    {.index = ConstantIndex::kZeta3,
     .key = "zeta3",
     .words = {"apery", "zeta3", "zeta(3)"},
     .menu = {kModerate, 'G', "Zeta(3) (Apery's Constant)", "1.202056...", "  37.7 / 50.9 / 33.3"},
     .name = "Zeta(3)",
     .name_long = "Zeta(3) - Apery's Constant",
     .algorithm_menu = {kZeta3, nullptr, 2}},
    {.index = ConstantIndex::kCatalan,
     .key = "catalan",
     .words = {"catalan"},
     .menu = {kModerate, 'G', "Catalan's Constant", "0.915965...", "  54.3 / 75.4 / 99.0"},
     .name = "Catalan",
     .name_long = "Catalan's Constant",
     .algorithm_menu = {kCatalan}},
    {.index = ConstantIndex::kLemniscate,
     .key = "lemniscate",
     .words = {"lemniscate"},
     .menu = {kModerate, 'G', "Lemniscate", "5.244115...", "  34.1/99.5/123./35.3"},
     .name = "Lemniscate",
     .name_long = "Lemniscate Constant",
     .algorithm_menu = {kLemniscate, kLemniscateNote, 3}},
    {.index = ConstantIndex::kGamma,
     .key = "gamma",
     .words = {"gamma"},
     .menu = {kSlow, 'B', "Euler-Mascheroni Constant", "0.577215...", "  246. / 368."},
     .name = "Euler-Mascheroni Constant",
     .algorithm_menu = {kGamma},
     .make = make_gamma},
    {.index = ConstantIndex::kBrent,
     .key = "brent",
     .words = {"brent"},
     .menu = {kOther, 'B', "Euler-Mascheroni Constant (parameter override)"},
     .name = "Euler-Mascheroni Constant",
     .algorithm_menu = {kGamma},
     .argument = {Argument::kWholeNumber, "n = 2^k: k = "},
     .make = make_brent},
    {.index = ConstantIndex::kCustom,
     .key = "custom",
     .words = {"custom"},
     .menu = {kOther, 'R', "Custom constant with user-defined formula."},
     .argument = {Argument::kFormulaFile, "Enter path of formula file: "},
     .make = make_custom},
}};

constexpr bool is_ordered() {
  for (u32 i = 0; i < kConstantCount; i++)
    if (kCatalogue[i].index != static_cast<ConstantIndex>(i)) return false;
  return true;
}
static_assert(is_ordered(), "a row stands at its index");

}  // namespace

std::span<const ConstantRow, kConstantCount> catalogue() { return kCatalogue; }

std::unique_ptr<Constant> make_constant(u64 index) {
  if (index >= kConstantCount) return nullptr;
  const ConstantRow& row = kCatalogue[index];
  return row.make ? row.make() : std::make_unique<Constant>(row.index);
}

std::string Constant::algorithm_key() const { return algorithms()[algorithm_index()].key; }
std::string Constant::algorithm_short() const { return algorithms()[algorithm_index()].short_name; }
std::string Constant::algorithm_long() const { return algorithms()[algorithm_index()].long_name; }

void Constant::set_algorithm(std::string_view algorithm_word) {
  const auto rows = algorithms();
  for (u32 i = 0; i < rows.size(); i++) {
    // Shells take brackets for their own: exp1 stands for exp(1).
    std::string plain = rows[i].key;
    std::erase_if(plain, [](char c) { return c == '(' || c == ')'; });
    if (algorithm_word == rows[i].key || algorithm_word == plain) {
      algorithm_ = i;
      return;
    }
  }
  throw InvalidParametersException("Constant::set_algorithm()",
                                   "Invalid Algorithm: " + std::string(algorithm_word));
}

std::string Constant::unavailable() const {
  const auto has_plan = [](const AlgorithmRow& row) { return row.make_ram != nullptr; };
  const auto rows = algorithms();
  if (!rows.empty() && has_plan(rows[algorithm_index()])) return {};
  std::string text = name();
  if (std::any_of(rows.begin(), rows.end(), has_plan)) text += " by " + algorithm_key();
  text += " cannot be computed by this version yet. It computes ";
  std::vector<const char*> keys;
  for (const ConstantRow& row : kCatalogue)
    if (const auto& all = row.algorithm_menu.rows; std::any_of(all.begin(), all.end(), has_plan))
      keys.push_back(row.key);
  for (std::size_t i = 0; i < keys.size(); ++i)
    text += (i == 0 ? "" : i + 1 == keys.size() ? " and " : ", ") + std::string(keys[i]);
  return text + ".";
}

void Constant::set_argument(const std::string& text) {
  if (!text.empty())
    throw InvalidParametersException(
        "Constant::set_argument()", std::string("The constant \"") + key() + "\" takes no argument: " + text);
}

void Constant::to_object(orl::Object& parent) const {
  orl::Object object;
  object.add_string("Constant", key());
  write_keys(object);
  parent.add_object("Constant", std::move(object));
}

void Constant::from_object(const orl::Object& parent) { read_keys(parent.get_object("Constant")); }

void Constant::write_keys(orl::Object& object) const { object.add_string("Algorithm", algorithm_key()); }

void Constant::read_keys(const orl::Object& object) {
  orl::read_optional_key(object, "Algorithm", [&] { set_algorithm(object.get_string("Algorithm")); });
}

void Constant::describe(orl::Object& report) const {
  const auto add = [&](const char* node, const std::string& value, const std::string& display) {
    orl::Object object;
    object.add_string("Value", value);
    object.add_string("DisplayText", display);
    object.add_string("DisplayColor", std::string(1, row().menu.colour));
    report.add_object(node, std::move(object));
  };
  add("Constant", key(), name_long());
  add("Algorithm", algorithm_key(), algorithm_long());
}

std::span<const ConstantWord> constant_words() {
  static const std::vector<ConstantWord> words = [] {
    std::vector<ConstantWord> list;
    for (const ConstantRow& row : kCatalogue)
      for (const char* word : row.words)
        if (word) list.push_back({word, static_cast<u64>(row.index)});
    return list;
  }();
  return words;
}

u64 constant_index(const std::string& word) {
  for (const ConstantWord& row : constant_words())
    if (word == row.word) return row.index;
  throw InvalidParametersException("constant_index()", "Invalid Constant: " + word);
}

}  // namespace orvane
