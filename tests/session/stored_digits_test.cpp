// The digits that come with the program: a file for every constant of the catalogue, under its name, and
// right.
#include <gtest/gtest.h>
#include <mpfr.h>

#include <functional>
#include <map>

#include "session/constant.h"
#include "support/files.h"

namespace orvane {
namespace {

constexpr std::size_t kStored = 10000;

// Floor(x * 10^kStored) with the point. MPFR rounds down at far more bits than the digits need.
std::string digits_by_mpfr(const std::function<void(mpfr_ptr)>& set) {
  mpfr_t x, scale;
  mpfr_inits2(34000, x, scale, static_cast<mpfr_ptr>(nullptr));
  set(x);
  mpfr_ui_pow_ui(scale, 10, kStored, MPFR_RNDN);
  mpfr_mul(x, x, scale, MPFR_RNDD);
  char* text = nullptr;
  mpfr_asprintf(&text, "%.0RDf", x);
  std::string digits = text;
  mpfr_free_str(text);
  mpfr_clears(x, scale, static_cast<mpfr_ptr>(nullptr));
  if (digits.size() <= kStored) digits.insert(0, kStored + 1 - digits.size(), '0');
  return digits.insert(digits.size() - kStored, ".");
}

std::string stored_file(const std::string& name) {
  return orl::test::read_file(ORVANE_DIGITS_FOLDER "/" + name + ".txt");
}

TEST(StoredDigits, AreThereForEveryConstantUnderItsName) {
  for (u64 index = 0; index < kConstantCount; index++) {
    if (static_cast<ConstantIndex>(index) == ConstantIndex::kCustom) continue;
    const std::string name = make_constant(index)->name(), text = stored_file(name);
    const auto point = text.find('.');
    ASSERT_EQ(point, 1u) << name;
    EXPECT_EQ(text.size(), 2 + kStored) << name;
    EXPECT_EQ(text.find_first_not_of("0123456789", point + 1), std::string::npos) << name;
    const std::string value = catalogue()[index].menu.value;
    if (value.ends_with("...")) {
      EXPECT_EQ(text.substr(0, 7), value.substr(0, 7)) << "as in the constants menu";
    }
  }
}

TEST(StoredDigits, AreThoseOfMpfr) {
  const std::map<std::string, std::function<void(mpfr_ptr)>> values = {
      {"Pi", [](mpfr_ptr x) { mpfr_const_pi(x, MPFR_RNDD); }},
      {"Log(2)", [](mpfr_ptr x) { mpfr_const_log2(x, MPFR_RNDD); }},
      {"Catalan", [](mpfr_ptr x) { mpfr_const_catalan(x, MPFR_RNDD); }},
      {"Euler-Mascheroni Constant", [](mpfr_ptr x) { mpfr_const_euler(x, MPFR_RNDD); }},
      {"Sqrt(2)", [](mpfr_ptr x) { mpfr_sqrt_ui(x, 2, MPFR_RNDD); }},
      {"e",
       [](mpfr_ptr x) {
         mpfr_set_ui(x, 1, MPFR_RNDD);
         mpfr_exp(x, x, MPFR_RNDD);
       }},
      {"Golden Ratio",
       [](mpfr_ptr x) {
         mpfr_sqrt_ui(x, 5, MPFR_RNDD);
         mpfr_add_ui(x, x, 1, MPFR_RNDD);
         mpfr_div_2ui(x, x, 1, MPFR_RNDD);
       }},
      {"Lemniscate",  // 2 Pi / AGM(1, sqrt(2))
       [](mpfr_ptr x) {
         mpfr_t pi;
         mpfr_init2(pi, mpfr_get_prec(x));
         mpfr_set_ui(pi, 1, MPFR_RNDN);
         mpfr_sqrt_ui(x, 2, MPFR_RNDN);
         mpfr_agm(x, x, pi, MPFR_RNDN);
         mpfr_const_pi(pi, MPFR_RNDN);
         mpfr_div(x, pi, x, MPFR_RNDN);
         mpfr_mul_2ui(x, x, 1, MPFR_RNDN);
         mpfr_clear(pi);
       }},
  };
  for (const auto& [name, set] : values) EXPECT_TRUE(stored_file(name) == digits_by_mpfr(set)) << name;
}

}  // namespace
}  // namespace orvane
