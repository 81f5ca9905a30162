#include <array>
#include <cmath>

#include "config/located.h"
#include "console/console.h"
#include "core/exceptions.h"
#include "session/constant.h"

namespace orvane {
namespace {

namespace console = orl::console;
using orl::InvalidParametersException;

constexpr std::array<CatalogueRow, kConstantCount> kCatalogue = {{
    {"sqrt", 'P', "Sqrt(n)", "", "  1.46"},
    {"goldenratio", 'P', "Golden Ratio", "1.618034...", "  1.46"},
    {"e", 'P', "e", "2.718281...", "  3.88 / 3.88"},
    {"pi", 'G', "Pi", "3.141592...", "  13.2 / 19.9"},
    {"log", 'G', "Log(n)", "", "> 35.7"},
    {"zeta3", 'G', "Zeta(3) (Apery's Constant)", "1.202056...", "  62.8 / 65.7"},
    {"catalan", 'G', "Catalan's Constant", "0.915965...", "  75.2 / 108. / 135."},
    {"lemniscate", 'G', "Lemniscate", "5.244115...", "  60.4 / 124. / 154."},
    {"gamma", 'B', "Euler-Mascheroni Constant", "0.577215...", "  383. / 574."},
    {"brent", 'B', "Euler-Mascheroni Constant (parameter override)", "", ""},
    {"custom", 'R', "Custom constant with user-defined formula.", "", ""},
}};

constexpr const char* kMenuTags[kConstantCount] = {
    "Menu-Sqrt-Algorithms",    "Menu-Goldenratio-Algorithms", "Menu-E-Algorithms",
    "Menu-Pi-Algorithms",      "Menu-Log-Algorithms",         "Menu-Zeta3-Algorithms",
    "Menu-Catalan-Algorithms", "Menu-Lemniscate-Algorithms",  "Menu-Brent-Algorithms",
    "Menu-Brent-Algorithms",   "Menu-Custom-Algorithms",
};

constexpr AlgorithmRow kNewton[] = {{"newton", "Newton", "Newton's Method", "1st order Newton's Method"}};
constexpr AlgorithmRow kExp[] = {
    {"exp(1)", "exp(1)", "Taylor Series of exp(1)", ""},
    {"exp(-1)", "exp(-1)", "Taylor Series of exp(-1)", "Taylor Series of exp(-1)    (same speed)\n"},
};
constexpr AlgorithmRow kPi[] = {
    {"chudnovsky", "Chudnovsky", "Chudnovsky (1989)", "Chudnovsky (1989)    (fastest)"},
    {"ramanujan", "Ramanujan", "Ramanujan (1910)", "Ramanujan (1910)     (~40% slower)"},
    {"chudnovsky-reduced", "Chudnovsky (reduced)", "Chudnovsky (1989) (reduced memory)", nullptr},
    {"ramanujan-reduced", "Ramanujan (reduced)", "Ramanujan (1910) (reduced memory)", nullptr},
};
constexpr AlgorithmRow kLog[] = {
    {"machin-primary", "Machin (primary)", "Primary Machin-like Formula", ""},
    {"machin-secondary", "Machin (secondary)", "Secondary Machin-like Formula", ""},
};
constexpr AlgorithmRow kZeta3[] = {
    {"wedeniwski", "Wedeniwski", "Wedeniwski (1998)", "Wedeniwski (1998)               (fastest)"},
    {"az", "Amdeberhan-Zeilberger (1997)", "Amdeberhan-Zeilberger (1997)",
     "Amdeberhan-Zeilberger (1997)    (slightly slower)"},
};
constexpr AlgorithmRow kCatalan[] = {
    {"pilehrood-short", "Pilehrood (short)", "Pilehrood (2010-short)", "Pilehrood (2010-short)    (fastest)"},
    {"pilehrood-long", "Pilehrood (long)", "Pilehrood (2010-long)",
     "Pilehrood (2010-long)     (1.5x slower)"},
    {"guillera", "Guillera", "Guillera (2008)", "Guillera (2008)           (1.8x slower)"},
    {"lupas", "Lupas", "Lupas (2000)", "Lupas (2000)              (3.8x slower)"},
    {"huvent", "Huvent", "Huvent (2006)", "Huvent (2006)             (4.3x slower)"},
};
constexpr AlgorithmRow kLemniscate[] = {
    {"agm-pi", "AGM-Pi", "AGM-Pi", "AGM with Pi        (Can be very slow on disk.)\n"},
    {"gauss", "Gauss Formula", "Gauss Formula",
     "Gauss Formula      (2x slower in ram, may be faster on disk)\n"},
    {"sebah", "Sebah's formula", "Sebah's formula", "Sebah's Formula    (20% slower than Gauss)\n"},
};
constexpr AlgorithmRow kBrentMcMillan[] = {
    {"brent-refined", "Brent-McMillan (refined)", "Brent-McMillan with Refinement", ""},
    {"brent-original", "Brent-McMillan", "Brent-McMillan", ""},
};

constexpr std::span<const AlgorithmRow> kAlgorithms[kConstantCount] = {
    kNewton, kNewton, kExp, kPi, kLog, kZeta3, kCatalan, kLemniscate, kBrentMcMillan, kBrentMcMillan, {},
};

// Notes that stand under a constant's algorithm menu.
constexpr const char* kMenuNotes[kConstantCount] = {
    "\n    There are no alternate formulas for square roots. To verify sqrt(n),\n"
    "    compute sqrt(100*n) instead. The digits will be the same, but shifted\n"
    "    over by one digit.\n",
    "\n    There is no alternate formula for Golden Ratio. However, a verification\n"
    "    can be done by computing sqrt(125) instead. The digits will be the same,\n"
    "    but shifted over by one digit.\n",
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    "\n            Lemniscate = 2 Pi / AGM(1, sqrt(2))\n\n"
    "            Lemniscate = 8 * ArcSinlemn(1/2) + 4 * ArcSinLemn(7/23)\n\n"
    "            Lemniscate = 8 * ArcSinlemn(2/3) - 4 * ArcSinLemn(7/137)\n",
    nullptr,
    nullptr,
    nullptr,
};

void print_row(u64 index) {
  const CatalogueRow& row = kCatalogue[index];
  console::print_number(3, index, row.colour);
  console::print("         ", row.colour);
  console::print_padded(28, row.menu_name, row.colour);
  console::print("  ", row.colour);
  console::print_padded(16, row.value, row.colour);
  console::println(row.difficulty, row.colour);
}

}  // namespace

std::span<const CatalogueRow, kConstantCount> catalogue() { return kCatalogue; }

const char* Constant::key() const { return kCatalogue[static_cast<u32>(index_)].key; }
char Constant::display_colour() const { return kCatalogue[static_cast<u32>(index_)].colour; }
const char* Constant::menu_tag() const { return kMenuTags[static_cast<u32>(index_)]; }

std::span<const AlgorithmRow> Constant::algorithms() const { return kAlgorithms[static_cast<u32>(index_)]; }
std::string Constant::algorithm_key() const { return algorithms()[algorithm_].key; }
std::string Constant::algorithm_short() const { return algorithms()[algorithm_].short_name; }
std::string Constant::algorithm_long() const { return algorithms()[algorithm_].long_name; }

void Constant::set_algorithm(std::string_view algorithm_word) {
  const auto rows = algorithms();
  for (u32 i = 0; i < rows.size(); i++) {
    if (algorithm_word == rows[i].key) {
      algorithm_ = i;
      return;
    }
  }
  throw InvalidParametersException("Constant::set_algorithm()",
                                   "Invalid Algorithm: " + std::string(algorithm_word));
}

std::string Constant::menu_text(const AlgorithmRow& row) const {
  if (*row.menu_text != '\0') return row.menu_text;
  const auto choice = clone();
  choice->set_algorithm(row.key);
  return choice->algorithm_long();
}

void Constant::algorithm_menu() {
  const auto rows = algorithms();
  console::println("\nSelect an Algorithm:\n", 'w');
  u64 offered = 0;
  std::string last;
  const auto print_choice = [&](const std::string& text) {
    last = "   " + std::to_string(offered++) + "    " + text;
    console::println(last, 'T');
  };
  for (const AlgorithmRow& row : rows)
    if (row.menu_text) print_choice(menu_text(row));
  if (rows.empty()) print_choice(algorithm_long());
  if (const char* notes = kMenuNotes[static_cast<u32>(index_)]) console::println(last = notes, 'w');
  if (!last.ends_with('\n')) console::newline();
  algorithm_ = static_cast<u32>(console::read_bounded("Algorithm: ", 0, offered - 1, 'G'));
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
    object.add_string("DisplayColor", std::string(1, display_colour()));
    report.add_object(node, std::move(object));
  };
  add("Constant", key(), name_long());
  add("Algorithm", algorithm_key(), algorithm_long());
}

std::span<const ConstantWord> constant_words() {
  static constexpr ConstantWord words[] = {
      {"sqrt", 0},       {"phi", 1},   {"goldenratio", 1}, {"e", 2},       {"pi", 3},
      {"log", 4},        {"apery", 5}, {"zeta3", 5},       {"zeta(3)", 5}, {"catalan", 6},
      {"lemniscate", 7}, {"gamma", 8}, {"brent", 9},       {"custom", 10},
  };
  return words;
}

u64 constant_index(const std::string& word) {
  for (const ConstantWord& row : constant_words())
    if (word == row.word) return row.index;
  throw InvalidParametersException("constant_index()", "Invalid Constant: " + word);
}

std::unique_ptr<Constant> constants_menu() {
  console::println("\nCompute a Constant: (in ascending order of difficulty to compute)\n", 'w');
  console::println("  #         Constant                      Value        Approximate Difficulty*\n", 'w');
  const auto section = [](const char* heading, u64 first, u64 last) {
    console::println(heading, 'w');
    for (u64 i = first; i <= last; i++) print_row(i);
    console::newline();
  };
  section("Fast Constants:", 0, 2);
  section("Moderate Constants:", 3, 7);
  section("Slow Constants:", 8, 8);
  section("Other:", 9, 10);
  console::println("*Actual numbers will vary. Radix conversion = 1.00\n", 'w');
  console::println("Enter your choice:", 'w');
  std::unique_ptr<Constant> constant;
  while (!constant) constant = make_constant(console::read_number("option: ", 'G'));
  if (!constant->on_select()) return nullptr;
  return constant;
}

}  // namespace orvane
