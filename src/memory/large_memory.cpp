#include "memory/large_memory.h"

#include <algorithm>
#include <cstring>

#include "core/exceptions.h"
#include "core/format.h"
#include "core/name_table.h"
#include "core/output.h"
#include "memory/node_placement.h"

namespace orl {
namespace {

constexpr Named<Mode> kModeTitles[] = {
    {Mode::disabled, "Disabled"}, {Mode::attempt, "Attempt"}, {Mode::forced, "Forced"}};
constexpr Named<Mode> kModeWords[] = {
    {Mode::disabled, "disable"}, {Mode::attempt, "attempt"}, {Mode::forced, "forced"}};

std::string mode_text(const char* function, const char* text) {
  if (text == nullptr) throw InvalidParametersException(function, "Invalid Mode");
  return text;
}

}  // namespace

std::string mode_to_string(Mode mode) { return mode_text("mode_to_string", name_of(kModeTitles, mode)); }

std::string mode_to_word(Mode mode) { return mode_text("mode_to_word", name_of(kModeWords, mode)); }

Mode word_to_mode(const std::string& key, const std::string& word) {
  if (const auto mode = value_named(kModeWords, word)) return *mode;
  throw InvalidParametersException(
      "word_to_mode", "Invalid value for " + key + R"(. Expected "disable", "attempt", or "forced".)");
}

Mode word_to_bind_mode(const std::string& word) {
  const auto mode = value_named(kModeWords, word);
  if (mode && *mode != Mode::disabled) return *mode;
  throw InvalidParametersException("word_to_bind_mode",
                                   R"(Invalid value for NumaBind. Expected "attempt" or "forced".)");
}

Mode next_mode(Mode mode) { return static_cast<Mode>((static_cast<u32>(mode) + 1) % 3); }

bool AllocationReport::is_ordinary() const {
  return page_size == kSmallPageBytes && locked_bytes == 0 && node_bytes.size() <= 1;
}

std::vector<std::pair<std::string, std::string>> AllocationReport::rows() const {
  std::vector<std::pair<std::string, std::string>> rows = {
      {"Total Bytes:", format_bytes(total_bytes)},
      {"Page Size:", format_with_commas(page_size)},
      {"Large Page Bytes:", format_bytes(large_page_bytes)},
      {"Locked Bytes:", format_bytes(locked_bytes)}};
  for (const auto& [node, bytes] : node_bytes)
    rows.emplace_back("NUMA node " + std::to_string(node) + ":", format_bytes(bytes));
  return rows;
}

void AllocationReport::print() const {
  for (const auto& [label, value] : rows()) {
    notice(padded("    " + label, 24), 'w');
    notice_line(value, 'G');
  }
  output().set_colour('w');
}

namespace {

/// Words i, i+1, i+2, i+3 of the pattern at once: its second difference is constant, so a step is two
/// additions.
using FourWords = u32 __attribute__((vector_size(16)));

constexpr u32 pattern_word(u32 i) { return i * i * 0xC82B9175u - 933796325u; }

FourWords four_pattern_words(u32 i) {
  return FourWords{pattern_word(i), pattern_word(i + 1), pattern_word(i + 2), pattern_word(i + 3)};
}

u64 bytes_above_word(const char* place) { return reinterpret_cast<std::uintptr_t>(place) % 4; }

// The part [from, to) of the pattern of [begin, end), which is not empty. A bound that is not the pattern's
// own stands between two words.
void write_pattern(char* begin, char* end, char* from, char* to) {
  if (from == begin) *begin = '{';
  if (to == end) end[-1] = '@';
  char* const first_word = begin + (4 - bytes_above_word(begin)) % 4;
  from = std::max(from, first_word);
  to -= bytes_above_word(to);
  if (to <= from) return;
  const u32 i = static_cast<u32>((from - first_word) / 4);
  FourWords value = four_pattern_words(i);
  FourWords step = four_pattern_words(i + 4) - value;
  const FourWords step_growth = four_pattern_words(i + 8) - four_pattern_words(i + 4) - step;
  for (; to - from >= 16; from += 16) {
    std::memcpy(from, &value, sizeof value);
    value += step;
    step += step_growth;
  }
  std::memcpy(from, &value, static_cast<u64>(to - from));
}

}  // namespace

void touch_part(void* address, u64 length_bytes, u64 tds, u64 begin, u64 end) {
  if (begin == end) return;
  char* const block = static_cast<char*>(address);
  const u64 pieces = std::max<u64>(tds / 4, 1);
  const u64 piece_bytes = (length_bytes + pieces - 1) / pieces;
  for (u64 piece = begin / piece_bytes * piece_bytes; piece < end; piece += piece_bytes) {
    const u64 piece_end = std::min(piece + piece_bytes, length_bytes);
    write_pattern(block + piece, block + piece_end, block + std::max(piece, begin),
                  block + std::min(piece_end, end));
  }
}

void touch_memory(void* address, u64 length_bytes) { touch_part(address, length_bytes, 1, 0, length_bytes); }

void touch_memory(void* address, u64 length_bytes, const ParallelContext& parallel) {
  const u64 pages = (length_bytes + kSmallPageBytes - 1) / kSmallPageBytes;
  const u64 tasks = std::min(parallel.tds, pages);
  fork_range(parallel.parallelizer, 0, tasks, [=](u64 k) {
    const u64 end = std::min(pages * (k + 1) / tasks * kSmallPageBytes, length_bytes);
    touch_part(address, length_bytes, parallel.tds, pages * k / tasks * kSmallPageBytes, end);
  });
}

/// splitmix64's finisher (Steele, Lea, Flood, "Fast splittable pseudorandom number generators", 2014).
u64 scatter(u64 x) {
  x += 0x9E3779B97F4A7C15u;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9u;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBu;
  return x ^ (x >> 31);
}

std::map<int, u64> sample_nodes(const void* address, u64 length_bytes, u64 samples) {
  const u64 pages = (length_bytes + kSmallPageBytes - 1) / kSmallPageBytes;
  const u64 stride = std::max<u64>((pages + samples - 1) / samples, 1);
  std::map<int, u64> bytes;
  for (u64 first = 0; first < pages; first += stride) {
    // Not always the first page of a stride: pages that take turns on two nodes would all seem to lie on one.
    const u64 page = std::min(first + scatter(first) % stride, pages - 1);
    const int node = node_of_page(static_cast<const char*>(address) + page * kSmallPageBytes);
    if (node >= 0) bytes[node] += std::min(stride * kSmallPageBytes, length_bytes - first * kSmallPageBytes);
  }
  return bytes;
}

}  // namespace orl
