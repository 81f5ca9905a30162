// The closed list of what can be computed: constants, their algorithms, and how a choice becomes a plan.
//
// A Constant is chosen by a word of the command line, a menu or a configuration file; it holds an algorithm,
// an argument where it has one, and a precision. Everything above asks it and never names a constant itself.
#pragma once

#include <memory>
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

/// A row of the constants menu.
struct CatalogueRow {
  const char* key;
  char colour;
  const char* menu_name;
  const char* value;       ///< empty where it depends on an argument
  const char* difficulty;  ///< cost in radix conversions, a figure per algorithm
};
/// All rows, by catalogue index.
std::span<const CatalogueRow, kConstantCount> catalogue();

/// A row of a constant's algorithm menu. Index 0 is the default and the fastest.
struct AlgorithmRow {
  const char* key;
  const char* short_name;
  const char* long_name;
  const char* menu_text;  ///< shown in the menu; empty: the long name; null: not offered there
};

class Constant {
 public:
  virtual ~Constant() = default;

  /// A copy of its own.
  virtual std::unique_ptr<Constant> clone() const = 0;

  ConstantIndex index() const { return index_; }
  /// The word of the command line and of files; the colour of the name in menus; the name of its algorithm
  /// menu.
  const char* key() const;
  char display_colour() const;
  const char* menu_tag() const;
  /// Short name of files and of the "Constant:" line, such as "Pi" or "Sqrt(2)".
  virtual std::string name() const = 0;
  /// The name of reports where a longer one exists, such as "Zeta(3) - Apery's Constant".
  virtual std::string name_long() const { return name(); }

  /// Empty where the constant brings its own names from a file.
  std::span<const AlgorithmRow> algorithms() const;
  virtual std::string algorithm_key() const;
  virtual std::string algorithm_short() const;
  virtual std::string algorithm_long() const;
  u32 algorithm_index() const { return algorithm_; }
  /// Throws InvalidParametersException "Invalid Algorithm: " with the word; the former choice then stays.
  virtual void set_algorithm(std::string_view algorithm_word);
  /// Prints the choices and reads one.
  void algorithm_menu();

  virtual bool takes_argument() const { return false; }
  /// The argument of the command line: what stood behind the constant's colon.
  virtual void set_argument(const std::string& text);
  /// Asks for the argument, if there is one, when the menu picks the constant. False cancels.
  virtual bool on_select() { return true; }

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

  /// Empty when the constant can be computed in memory; else one line that says what cannot be done.
  virtual std::string unavailable() const = 0;
  /// The plan of the chosen algorithm for `precision_words` words and `tds` tasks; unavailable() is empty.
  virtual std::unique_ptr<orl::ConstantPlan<Word>> make_ram(u64 precision_words, u64 tds) const = 0;

 protected:
  explicit Constant(ConstantIndex index) : index_(index) {}
  Constant(const Constant&) = default;

  /// The keys beside the constant's own.
  virtual void write_keys(orl::Object& object) const;
  virtual void read_keys(const orl::Object& object);

  ConstantIndex index_;
  u32 algorithm_ = 0;

 private:
  std::string menu_text(const AlgorithmRow& row) const;

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

/// The constants menu: returns the new choice, or none when the user cancels.
std::unique_ptr<Constant> constants_menu();

}  // namespace orvane
