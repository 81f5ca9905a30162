#include "system/kernel_files.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>

namespace orl {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

template <class T>
std::optional<T> leading_number(std::string_view text) {
  T value{};
  if (std::from_chars(text.data(), text.data() + text.size(), value).ec != std::errc()) return {};
  return value;
}

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
  return std::string(std::istreambuf_iterator<char>(file), {});
}

std::string read_kernel_line(const std::string& path) {
  const std::string text = read_kernel_file(path).value_or("");
  return std::string(trimmed(std::string_view(text).substr(0, text.find('\n'))));
}

std::optional<s64> read_kernel_number(const std::string& path) {
  return leading_number<s64>(read_kernel_line(path));
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

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == text.npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
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
  const u64 kilobytes = leading_number<u64>(trimmed(text.substr(at + label.size(), 32))).value_or(0);
  return kilobytes > ~u64{0} >> 10 ? 0 : kilobytes << 10;
}

}  // namespace orl
