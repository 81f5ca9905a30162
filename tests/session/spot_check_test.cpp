#include "session/spot_check.h"

#include <gtest/gtest.h>

#include "digits/digit_words.h"
#include "support/files.h"

namespace orvane {
namespace {

constexpr u64 kDigits = 100000;

// 3. and digits that repeat with period 7919, as words and as the text of a stored file.
class SpotChecks : public testing::Test {
 protected:
  SpotChecks() : words_(kDigits / 19 + 1) {
    std::vector<orl::u8> digits(words_.size() * 19);
    for (u64 i = 0; i < digits.size(); i++) digits[i] = static_cast<orl::u8>(i % 7919 % 10);
    std::vector<u64> in_order(words_.size());
    orl::pack_words(10, in_order.data(), digits.data(), in_order.size());
    std::copy(in_order.rbegin(), in_order.rend(), words_.begin());
    number_ = {10, 3, words_.data(), words_.size()};
    text_ = "3.";
    for (u64 i = 0; i < kDigits; i++) text_ += static_cast<char>('0' + digits[i]);
  }

  SpotCheck check(const std::string& stored, u64 digit_count = kDigits) {
    orl::test::write_file(folder_.file("Pi.txt"), stored);
    return spot_check({folder_.path() + "/"}, "Pi.txt", number_, digit_count);
  }

  orl::test::TemporaryFolder folder_;
  std::vector<u64> words_;
  DigitWords number_{};
  std::string text_;
};

TEST_F(SpotChecks, PassOverAsManyDigitsAsBothSidesHave) {
  for (const u64 stored : {u64{1}, u64{18}, u64{19}, u64{20}, u64{77824}, u64{77825}, kDigits})
    for (const u64 fresh : {u64{100}, u64{101}, kDigits}) {
      const SpotCheck result = check(text_.substr(0, 2 + stored), fresh);
      EXPECT_EQ(result.result, SpotCheck::kPassed) << stored << " " << fresh;
      EXPECT_EQ(result.compared, std::min(stored, fresh));
    }
  for (const u64 stored : {u64{100}, kDigits}) {  // an editor's line ends
    const SpotCheck result = check(text_.substr(0, 2 + stored) + "\r\n\n");
    EXPECT_EQ(result.result, SpotCheck::kPassed) << stored;
    EXPECT_EQ(result.compared, stored);
  }
}

TEST_F(SpotChecks, SayWhereTheFirstWrongDigitStands) {
  for (const u64 position : {u64{1}, u64{2}, u64{19}, u64{20}, u64{77824}, u64{77825}, kDigits}) {
    std::string wrong = text_;
    char& digit = wrong[1 + position];
    digit = digit == '9' ? '0' : static_cast<char>(digit + 1);
    wrong.back() ^= 1;  // a later one does not matter
    if (position == kDigits) wrong.back() = 'x';
    const SpotCheck result = check(wrong);
    EXPECT_EQ(result.result, SpotCheck::kFailed);
    EXPECT_EQ(result.position, position);
    EXPECT_EQ(result.compared, position - 1);
    const bool beyond_the_run = position > 200;
    EXPECT_EQ(check(wrong, 200).result, beyond_the_run ? SpotCheck::kPassed : SpotCheck::kFailed);
  }
  const SpotCheck other = check("4" + text_.substr(1));
  EXPECT_EQ(other.result, SpotCheck::kFailed);
  EXPECT_EQ(other.position, 0u);
}

TEST_F(SpotChecks, AreNotAvailableWithoutStoredDigits) {
  EXPECT_EQ(spot_check({folder_.path() + "/"}, "Pi.txt", number_, kDigits).result, SpotCheck::kNotAvailable);
  EXPECT_EQ(check("").result, SpotCheck::kNotAvailable);
  EXPECT_EQ(check("3.").result, SpotCheck::kNotAvailable);
  std::filesystem::create_directory(folder_.file("e.txt"));
  EXPECT_EQ(spot_check({folder_.path() + "/"}, "e.txt", number_, kDigits).result, SpotCheck::kNotAvailable);
}

TEST_F(SpotChecks, TakeTheFirstFolderThatHasTheFile) {
  EXPECT_EQ(
      stored_digit_folders("", "/opt/bin/"),
      (std::vector<std::string>{"Binaries/Digits/", "Digits/", "../../Digits/", "../../../Digits/",
                                "/opt/bin/Binaries/Digits/", "/opt/bin/Digits/", "/opt/bin/../../Digits/",
                                "/opt/bin/../../../Digits/", "/opt/bin/../share/orvane/Digits/"}));
  check(text_);
  const std::vector<std::string> folders = {folder_.file("none/"), folder_.path() + "/"};
  const SpotCheck result = spot_check(folders, "Pi.txt", number_, kDigits);
  EXPECT_EQ(result.result, SpotCheck::kPassed);
  EXPECT_EQ(result.file, folder_.path() + "/Pi.txt");
}

}  // namespace
}  // namespace orvane
