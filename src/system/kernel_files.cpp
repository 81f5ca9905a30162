#include "system/kernel_files.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <sstream>

namespace orl {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

// The whole of `text` as an id.
std::optional<u32> id_of(std::string_view text) {
  u32 id = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  if (error != std::errc() || end != text.data() + text.size() || id >= kMaxKernelId) return {};
  return id;
}

}  // namespace

std::optional<std::string> read_kernel_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return {};
  std::ostringstream text;
  text << file.rdbuf();  // unlike an iterator, stops at an error without throwing
  return text.str();
}

std::string read_kernel_line(const std::string& path) {
  const std::string text = read_kernel_file(path).value_or("");
  return std::string(trimmed(std::string_view(text).substr(0, text.find('\n'))));
}

std::optional<s64> leading_number(std::string_view text) {
  s64 value = 0;
  if (std::from_chars(text.data(), text.data() + text.size(), value).ec != std::errc()) return {};
  return value;
}

std::optional<s64> read_kernel_number(const std::string& path) {
  return leading_number(read_kernel_line(path));
}

std::vector<u32> parse_id_list(std::string_view text) {
  std::vector<u32> ids;
  while (!text.empty()) {
    const std::string_view piece = trimmed(text.substr(0, text.find(',')));
    text.remove_prefix(std::min(text.size(), text.find(',') == text.npos ? text.size() : text.find(',') + 1));
    const std::size_t dash = piece.find('-');
    const auto first = id_of(piece.substr(0, dash));
    const auto last = dash == piece.npos ? first : id_of(piece.substr(dash + 1));
    if (!first || !last) continue;
    for (u32 id = *first; id <= *last; id++) ids.push_back(id);
  }
  std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  return ids;
}

std::string id_list_text(const std::vector<u32>& rising_ids) {
  std::string text;
  for (std::size_t i = 0; i < rising_ids.size(); i++) {
    const u32 first = rising_ids[i];
    while (i + 1 < rising_ids.size() && rising_ids[i + 1] == rising_ids[i] + 1) i++;
    if (!text.empty()) text += ",";
    text += std::to_string(first);
    if (rising_ids[i] != first) text += "-" + std::to_string(rising_ids[i]);
  }
  return text.empty() ? "none" : text;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == text.npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

std::string printable(std::string_view text) {
  std::string result(trimmed(text));
  for (char& c : result)
    if (c < ' ' || c > '~') c = '?';
  return result;
}

std::vector<std::string_view> lines_of(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    lines.push_back(text.substr(0, end));
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
  }
  return lines;
}

u64 kilobytes_field(std::string_view text, std::string_view label) {
  const std::size_t at = text.find(label);
  if (at == text.npos) return 0;
  const s64 kilobytes = leading_number(trimmed(text.substr(at + label.size(), 32))).value_or(0);
  return kilobytes < 0 || kilobytes > s64{1} << 52 ? 0 : static_cast<u64>(kilobytes) << 10;
}

}  // namespace orl
