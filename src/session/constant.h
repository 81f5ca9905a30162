// The closed list of what can be computed: constants, their algorithms, and how a choice becomes a plan.
//
// The catalogue says what is known of a constant; a class of its own has only one that takes an argument or
// names its algorithm by its precision. A Constant is chosen by a word of the command line, a menu or a configuration file; it holds an algorithm,
// an argument where it has one, and a precision. Everything above asks it and never names a constant itself.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "config/object.h"
#include "constants/constant_plan.h"

namespace orvane {

using orl::u32;
using orl::u64;

/// The word of the number objects in this program.
using Word = u64;

/// Largest digit count that any constant offers.
inline constexpr u64 kMaxDecimalDigits = 1000000000000050;

/// Catalogue indices, in the order of the constants menu.
enum class ConstantIndex : u32 {
  kSqrt = 0,
  kGoldenRatio,
  kE,
  kPi,
  kLog,
  kZeta3,
  kCatalan,
  kLemniscate,
  kGamma,
  kBrent,
  kCustom,
};
inline constexpr u32 kConstantCount = 11;

class Constant;

/// What makes the plan of an algorithm in memory.
using MakeRam = std::unique_ptr<orl::ConstantPlan<Word>> (*)(const Constant&, u64 precision_words, u64 tds);

/// A row of a constant's algorithm menu.
struct AlgorithmRow {
  const char* key;
  const char* short_name;
  const char* long_name;
  const char* menu_text;       ///< shown in the menu; empty: the long name; null: not offered there
  MakeRam make_ram = nullptr;  ///< null: not in this version
};

/// What stands behind the colon of a constant's word.
enum class Argument { kNone, kWholeNumber, kFormulaFile };

/// A line of the constants menu.
struct ConstantMenuRow {
  const char* section;  ///< a heading over rows that follow each other
  char colour;
  const char* name;
  const char* value = "";       ///< first digits; empty where it depends on an argument
  const char* difficulty = "";  ///< cost in radix conversions, a figure per algorithm
};
/// The algorithms of a constant, as their menu shows them.
struct AlgorithmMenu {
  std::span<const AlgorithmRow> rows{};  ///< empty where a file brings their names
  const char* note = nullptr;            ///< stands under them
  u32 default_row = 0;                   ///< the fastest
  const char* remark = nullptr;          ///< stands behind them in the help
};
/// What a constant asks for.
struct ArgumentQuestion {
  Argument kind = Argument::kNone;
  const char* prompt = nullptr;
};

/// Everything that is known of a constant before a run: one row, read by the command line, the menus, files,
/// plans and reports.
struct ConstantRow {
  ConstantIndex index;
  const char* key;                   ///< of files and reports
  std::array<const char*, 3> words;  ///< of the command line; null: no further one

  ConstantMenuRow menu;

  const char* name = nullptr;       ///< of files, such as "Pi"; null where an argument or a file tells it
  const char* name_long = nullptr;  ///< of reports; null where it is the same

  AlgorithmMenu algorithm_menu{};
  ArgumentQuestion argument{};

  /// A fresh object of the constant's own class; null where Constant will do.
  std::unique_ptr<Constant> (*make)() = nullptr;
};
/// By index.
std::span<const ConstantRow, kConstantCount> catalogue();

class Constant {
 public:
  /// With its default algorithm, for rows without make(); make_constant() knows which they are.
  explicit Constant(ConstantIndex index) : index_(index) {}
  Constant(const Constant&) = default;
  virtual ~Constant() = default;

  /// A copy of its own.
  virtual std::unique_ptr<Constant> clone() const { return std::make_unique<Constant>(*this); }

  /// What the catalogue says of it.
  const ConstantRow& row() const { return catalogue()[static_cast<u32>(index_)]; }
  ConstantIndex index() const { return index_; }
  /// The word of the command line and of files.
  const char* key() const { return row().key; }
  /// Short name of files and of the "Constant:" line, such as "Pi" or "Sqrt(2)".
  virtual std::string name() const { return row().name; }
  /// The name of reports where a longer one exists, such as "Zeta(3) - Apery's Constant".
  virtual std::string name_long() const { return row().name_long ? row().name_long : name(); }

  /// Those that the argument allows; empty where the constant brings its own names from a file.
  virtual std::span<const AlgorithmRow> algorithms() const { return row().algorithm_menu.rows; }
  virtual std::string algorithm_key() const;
  virtual std::string algorithm_short() const;
  virtual std::string algorithm_long() const;
  /// The algorithm that was chosen, and until then the default.
  u32 algorithm_index() const { return algorithm_.value_or(default_algorithm()); }
  /// The fastest algorithm; may depend on the argument.
  virtual u32 default_algorithm() const { return row().algorithm_menu.default_row; }
  /// Throws InvalidParametersException "Invalid Algorithm: " with the word; the former choice then stays.
  virtual void set_algorithm(std::string_view algorithm_word);

  bool takes_argument() const { return row().argument.kind != Argument::kNone; }
  /// Of a constant whose argument is a whole number; 0 elsewhere.
  virtual u64 argument() const { return 0; }
  /// The argument of the command line: what stood behind the constant's colon.
  virtual void set_argument(const std::string& text);

  u64 precision() const { return precision_; }
  /// Decimal digits; algorithm names may depend on it.
  void set_precision(u64 decimal_digits) { precision_ = decimal_digits; }
  virtual u64 max_digits() const { return kMaxDecimalDigits; }

  /// Writes and reads the object under the key `Constant` of a configuration file.
  void to_object(orl::Object& parent) const;
  void from_object(const orl::Object& parent);
  /// Names and display texts for the configuration dump.
  void describe(orl::Object& report) const;
  /// Adds the key `Formula` to the dump, where the constant is defined by one.
  virtual void write_formula(orl::Object&) const {}

  /// Empty when the chosen algorithm can compute the constant in memory; else one line that says what cannot be done.
  virtual std::string unavailable() const;
  /// The plan of the chosen algorithm for `precision_words` words and `tds` tasks; unavailable() is empty.
  std::unique_ptr<orl::ConstantPlan<Word>> make_ram(u64 precision_words, u64 tds) const {
    return algorithms()[algorithm_index()].make_ram(*this, precision_words, tds);
  }

 protected:
  /// The keys beside the constant's own.
  virtual void write_keys(orl::Object& object) const;
  virtual void read_keys(const orl::Object& object);

  ConstantIndex index_;
  std::optional<u32> algorithm_;

 private:
  u64 precision_ = 100;
};

/// A fresh object; none for an index out of range.
std::unique_ptr<Constant> make_constant(u64 index);

/// A word of the command line for a constant; some constants have several.
struct ConstantWord {
  const char* word;
  u64 index;
};
/// All words, those of a constant side by side.
std::span<const ConstantWord> constant_words();

/// Catalogue index of a command-line word. Throws InvalidParametersException "Invalid Constant: " with the
/// word.
u64 constant_index(const std::string& word);

}  // namespace orvane
