#include "session/spot_check.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "digits/digit_text.h"
#include "digits/digit_words.h"

namespace orvane {
namespace {

constexpr u64 kBlockWords = 4096;

// Bytes of the file up to its last digit: line ends behind it are an editor's.
u64 length_of_digits(std::ifstream& file) {
  file.seekg(0, std::ios::end);
  u64 length = file ? static_cast<u64>(file.tellg()) : 0;
  for (; length != 0; length--) {
    file.seekg(static_cast<std::streamoff>(length - 1));
    const int last = file.get();
    if (last != '\n' && last != '\r') break;
  }
  file.clear();
  file.seekg(0);
  return length;
}

// Compares the digits after the point; `file` stands behind it.
void compare(std::ifstream& file, const DigitWords& number, u64 digit_count, SpotCheck& check) {
  const u64 block = kBlockWords * orl::digits_per_word(number.radix);
  while (check.compared < digit_count) {
    std::string stored(std::min(block, digit_count - check.compared), '\0');
    file.read(stored.data(), static_cast<std::streamsize>(stored.size()));
    stored.resize(static_cast<u64>(file.gcount()));
    if (stored.empty()) return;  // it has become shorter meanwhile
    const std::string fresh = digits_text(number, check.compared, stored.size());
    const auto difference = std::mismatch(stored.begin(), stored.end(), fresh.begin()).first;
    check.compared += static_cast<u64>(difference - stored.begin());
    if (difference == stored.end()) continue;
    check.result = SpotCheck::kFailed;
    check.position = check.compared + 1;
    return;
  }
}

}  // namespace

std::vector<std::string> stored_digit_folders(const std::string& working_folder,
                                              const std::string& program_folder) {
  std::vector<std::string> folders;
  for (const std::string& base : {working_folder, program_folder})
    for (const char* folder : {"Binaries/Digits/", "Digits/", "../../Digits/", "../../../Digits/"})
      folders.push_back(base + folder);
  folders.push_back(program_folder + "../share/orvane/Digits/");
  return folders;
}

SpotCheck spot_check(const std::vector<std::string>& folders, const std::string& file_name,
                     const DigitWords& number, u64 digit_count) {
  const std::string first_digits = first_digits_text(number);
  for (const std::string& folder : folders) {
    SpotCheck check;
    check.file = std::filesystem::path(folder + file_name).lexically_normal().string();
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(check.file, ignored)) continue;
    // Without the way there and back again, unless a link on it leads elsewhere.
    const std::string direct = std::filesystem::path(check.file).lexically_normal().string();
    if (std::filesystem::equivalent(direct, check.file, ignored)) check.file = direct;
    std::ifstream file(check.file, std::ios::binary);
    const u64 length = file ? length_of_digits(file) : 0;
    if (length <= first_digits.size()) continue;
    std::string stored(first_digits.size(), '\0');
    file.read(stored.data(), static_cast<std::streamsize>(stored.size()));
    check.result = stored == first_digits ? SpotCheck::kPassed : SpotCheck::kFailed;
    if (check.result == SpotCheck::kPassed)
      compare(file, number, std::min(digit_count, length - first_digits.size()), check);
    return check;
  }
  return {};
}

}  // namespace orvane
