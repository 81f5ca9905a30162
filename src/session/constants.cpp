#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "config/located.h"
#include "config/parser.h"
#include "constants/euler_series.h"
#include "constants/log.h"
#include "core/exceptions.h"
#include "core/number_forms.h"
#include "machin/generator.h"
#include "session/constant_kinds.h"
#include "session/parameters.h"
#include "splitting/size_model.h"

namespace orvane {
namespace {

using orl::InvalidParametersException;
using orl::parse_whole_number;
using orl::WholeNumber;

constexpr orl::u32 kWordBits = 8 * sizeof(Word);

// A constant whose argument is a whole number.
class ArgumentConstant : public Constant {
 public:
  using Constant::Constant;
  u64 argument() const override { return argument_; }
  void set_argument(const std::string& text) override {
    const WholeNumber number = parse_whole_number(text);
    if (number.kind == WholeNumber::kTooLarge)
      throw InvalidParametersException(function(), text + " is out of range.");
    if (number.kind == WholeNumber::kNone)
      throw InvalidParametersException(function(), std::string("The constant \"") + key() +
                                                       "\" needs a whole number as its argument, such as " +
                                                       key() + ":" + example() + ".");
    check_argument(number.value);
    argument_ = number.value;
  }

 protected:
  virtual void check_argument(u64 value) const = 0;
  virtual void check_file_argument(u64 value) const { check_argument(value); }
  /// What a file is told about a number that no check takes.
  virtual std::string range_text(const std::string& number) const { return number + " is out of range."; }
  virtual const char* function() const = 0;
  virtual const char* example() const = 0;
  void write_keys(orl::Object& object) const override {
    Constant::write_keys(object);
    if (argument_ > kMaxInteger)
      object.add_string("Argument", std::to_string(argument_));
    else
      object.add_integer("Argument", static_cast<orl::s64>(argument_));
  }
  void read_keys(const orl::Object& object) override {
    u64 argument = 0;
    orl::read_key(object, "Argument", [&] { argument = file_argument(object); });
    std::swap(argument_, argument);  // which algorithms there are may depend on it
    try {
      Constant::read_keys(object);
    } catch (...) {
      argument_ = argument;
      throw;
    }
  }

  // A file holds what its integers cannot as a string of digits.
  static constexpr u64 kMaxInteger = std::numeric_limits<orl::s64>::max();

  u64 file_argument(const orl::Object& object) const {
    std::string text;
    if (object.get("Argument").kind() == orl::ValueKind::kString)
      text = object.get_string("Argument");
    else
      text = std::to_string(object.get_integer("Argument"));
    const bool negative = text.starts_with('-');
    const WholeNumber number = parse_whole_number(negative ? text.substr(1) : text);
    if (number.kind == WholeNumber::kNone)
      throw InvalidParametersException(function(), "\"" + text + "\" is not a whole number.");
    if (negative || number.kind == WholeNumber::kTooLarge)
      throw InvalidParametersException(function(), range_text(text));
    check_file_argument(number.value);
    return number.value;
  }

  u64 argument_ = 2;
};

bool is_perfect_square(u64 n) {
  // The root of a 64-bit number rounded from a double may be off by one, and its square may wrap; 128 bits
  // hold it.
  const auto root = static_cast<orl::u128>(std::floor(std::sqrt(static_cast<double>(n)) + 0.5));
  for (orl::u128 r = root - (root > 0); r <= root + 1; r++)
    if (r * r == n) return true;
  return false;
}

class SqrtConstant final : public ArgumentConstant {
 public:
  SqrtConstant() : ArgumentConstant(ConstantIndex::kSqrt) {}
  std::unique_ptr<Constant> clone() const override { return std::make_unique<SqrtConstant>(*this); }
  std::string name() const override { return "Sqrt(" + std::to_string(argument_) + ")"; }

 protected:
  void check_argument(u64 value) const override {
    if (value <= 1) throw InvalidParametersException(function(), "Argument must be greater than 1.");
    check_square(value);
  }
  void check_file_argument(u64 value) const override {
    if (value < 1) throw InvalidParametersException(function(), range_text(std::to_string(value)));
    check_square(value);
  }
  const char* function() const override { return "Constant_Sqrt()"; }
  const char* example() const override { return "2"; }

 private:
  void check_square(u64 value) const {
    if (is_perfect_square(value))
      throw InvalidParametersException(function(), std::to_string(value) + " is a perfect square.");
  }
};

class LogConstant final : public ArgumentConstant {
 public:
  LogConstant() : ArgumentConstant(ConstantIndex::kLog) {}
  std::unique_ptr<Constant> clone() const override { return std::make_unique<LogConstant>(*this); }
  std::string name() const override { return "Log(" + std::to_string(argument_) + ")"; }
  std::span<const AlgorithmRow> algorithms() const override {
    return argument_ == 2 ? Constant::algorithms() : Constant::algorithms().first(kZuniga);
  }
  u32 default_algorithm() const override { return argument_ == 2 ? kZuniga : kPrimary; }
  void set_argument(const std::string& text) override {
    ArgumentConstant::set_argument(text);
    if (argument_ != 2 && algorithm_ == kZuniga) algorithm_.reset();
  }
  void set_algorithm(std::string_view word) override {
    if (argument_ != 2 && word == Constant::algorithms()[kZuniga].key)
      throw InvalidParametersException(function(), "zuniga is an algorithm for Log(2) alone: " + name() +
                                                       " has its Machin-like formulas.");
    Constant::set_algorithm(word);
  }
  std::string algorithm_long() const override {
    const std::string text = Constant::algorithm_long();
    if (algorithm_index() == kZuniga) return text;
    return text + " (" + std::to_string(formula().size()) + " terms)";
  }

  /// The formula of the chosen algorithm. Those that were made last are kept: names, menus and plans ask for the same
  /// ones.
  const orl::MachinFormula& formula() const {
    static struct {
      u64 n = 0, precision_words = 0;
      orl::LogFormulas formulas{};
    } made;
    const u64 words = Precision{precision()}.words();
    if (made.n != argument_ || made.precision_words != words) {
      const double nats = orl::words_to_nats<Word>(words).to_double();
      made = {argument_, words, orl::generate_log_formulas(argument_, nats)};
    }
    return algorithm_index() == kPrimary ? made.formulas.primary : made.formulas.secondary;
  }

 protected:
  void check_argument(u64 value) const override {
    if (value < 2 || value > 2147483647)
      throw InvalidParametersException(function(), std::to_string(value) + " is out of range.");
  }
  const char* function() const override { return "Constant_Log()"; }
  const char* example() const override { return "2"; }

 private:
  // Rows of its algorithms.
  static constexpr u32 kPrimary = 0, kZuniga = 2;
};

// Brent and McMillan's method with n = 2^k.
orl::EulerVariant euler_variant(const Constant& constant) {
  return constant.algorithm_index() == 0 ? orl::EulerVariant::kRefined : orl::EulerVariant::kOriginal;
}
u64 precision_words(const Constant& constant) { return Precision{constant.precision()}.words(); }

class GammaConstant final : public Constant {
 public:
  GammaConstant() : Constant(ConstantIndex::kGamma) {}
  std::unique_ptr<Constant> clone() const override { return std::make_unique<GammaConstant>(*this); }
  std::string algorithm_long() const override {
    return Constant::algorithm_long() + " ( n = 2^" +
           std::to_string(orl::euler_exponent(euler_variant(*this), precision_words(*this), kWordBits)) +
           " )";
  }
};

class BrentConstant final : public ArgumentConstant {
 public:
  BrentConstant() : ArgumentConstant(ConstantIndex::kBrent) {}
  std::unique_ptr<Constant> clone() const override { return std::make_unique<BrentConstant>(*this); }
  std::string algorithm_long() const override {
    return Constant::algorithm_long() + " ( n = 2^" + std::to_string(argument_) + " )";
  }
  std::string unavailable() const override {
    return orl::refused_euler_exponent(euler_variant(*this), argument_, precision_words(*this), kWordBits);
  }

 protected:
  void check_argument(u64 value) const override {
    if (value == 0) throw InvalidParametersException(function(), "Argument must be greater than 0.");
    if (value > 63) throw InvalidParametersException(function(), std::to_string(value) + " is out of range.");
  }
  void check_file_argument(u64 value) const override {
    if (value > 63) throw InvalidParametersException(function(), range_text(std::to_string(value)));
  }
  std::string range_text(const std::string& number) const override { return number + " is a out of range."; }
  const char* function() const override { return "Constant_Brent()"; }
  const char* example() const override { return "20"; }
};

// A constant that a formula file defines; the file brings its own names.
class CustomConstant final : public Constant {
 public:
  CustomConstant() : Constant(ConstantIndex::kCustom) {}
  std::unique_ptr<Constant> clone() const override { return std::make_unique<CustomConstant>(*this); }
  std::string name() const override { return names_[0]; }
  std::string name_long() const override { return names_[1]; }
  std::string algorithm_key() const override { return "custom"; }
  std::string algorithm_short() const override { return names_[2]; }
  std::string algorithm_long() const override { return names_[3]; }
  void set_algorithm(std::string_view word) override {
    if (word != algorithm_key())
      throw InvalidParametersException("Constant::set_algorithm()",
                                       "Invalid Algorithm: " + std::string(word));
  }
  void set_argument(const std::string& path) override {
    if (path.empty())
      throw InvalidParametersException("Constant_Custom()",
                                       "The constant \"custom\" needs a formula file: custom:<file>.");
    load(path);
  }
  void write_formula(orl::Object& dump) const override {
    dump.add_object("Formula", orl::copy_of(*formula_));
  }

 protected:
  void write_keys(orl::Object& object) const override {
    Constant::write_keys(object);
    for (std::size_t i = 0; i < std::size(kNameKeys); i++) object.add_string(kNameKeys[i], names_[i]);
    write_formula(object);
  }
  void read_keys(const orl::Object& object) override {
    Constant::read_keys(object);
    std::array<std::string, std::size(kNameKeys)> names;
    for (std::size_t i = 0; i < names.size(); i++) {
      orl::read_key(object, kNameKeys[i], [&] {
        names[i] = object.get_string(kNameKeys[i]);
        if (names[i].size() > kMaxNameLength)
          throw InvalidParametersException(kNameKeys[i], "String cannot be longer than 50 characters.");
      });
    }
    orl::read_key(object, "Formula", [&] {
      formula_ = std::make_shared<const orl::Object>(orl::copy_of(object.get_object("Formula")));
    });
    names_ = names;
  }

 private:
  static constexpr const char* kNameKeys[] = {"NameShort", "NameLong", "AlgorithmShort", "AlgorithmLong"};
  static constexpr std::size_t kMaxNameLength = 50;

  void load(const std::string& path) {
    const auto root = orl::load_file(path);
    const orl::Object& object = orl::root_object(*root);
    orl::read_key(object, "Constant", [&] { read_keys(object.get_object("Constant")); });
  }

  std::array<std::string, std::size(kNameKeys)> names_{"Custom", "Custom", "Custom", "Custom"};
  std::shared_ptr<const orl::Object> formula_ = std::make_shared<const orl::Object>();
};

}  // namespace

std::unique_ptr<Constant> make_sqrt() { return std::make_unique<SqrtConstant>(); }
std::unique_ptr<Constant> make_log() { return std::make_unique<LogConstant>(); }
std::unique_ptr<orl::ConstantPlan<Word>> plan_log_machin(const Constant& log, u64 precision_words, u64 tds) {
  const orl::MachinFormula& formula = static_cast<const LogConstant&>(log).formula();
  return orl::make_log_machin<orl::RamStore<Word>>(log.argument(), formula, precision_words, tds);
}
std::unique_ptr<Constant> make_gamma() { return std::make_unique<GammaConstant>(); }
std::unique_ptr<Constant> make_brent() { return std::make_unique<BrentConstant>(); }
std::unique_ptr<Constant> make_custom() { return std::make_unique<CustomConstant>(); }

}  // namespace orvane
