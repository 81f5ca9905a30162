#include "parallel/large_memory.h"

#include <algorithm>
#include <cstring>

#include "frame/console.h"
#include "frame/exceptions.h"
#include "parallel/node_placement.h"

namespace orl {

std::string mode_to_string(Mode mode) {
  switch (mode) {
    case Mode::disabled:
      return "Disabled";
    case Mode::attempt:
      return "Attempt";
    case Mode::forced:
      return "Forced";
  }
  throw InvalidParametersException("mode_to_string", "Invalid Mode");
}

std::string mode_to_word(Mode mode) {
  switch (mode) {
    case Mode::disabled:
      return "disable";
    case Mode::attempt:
      return "attempt";
    case Mode::forced:
      return "forced";
  }
  throw InvalidParametersException("mode_to_word", "Invalid Mode");
}

Mode word_to_mode(const std::string& key, const std::string& word) {
  for (const Mode mode : {Mode::disabled, Mode::attempt, Mode::forced}) {
    if (word == mode_to_word(mode)) return mode;
  }
  throw InvalidParametersException(
      "word_to_mode", "Invalid value for " + key + R"(. Expected "disable", "attempt", or "forced".)");
}

Mode word_to_bind_mode(const std::string& word) {
  for (const Mode mode : {Mode::attempt, Mode::forced}) {
    if (word == mode_to_word(mode)) return mode;
  }
  throw InvalidParametersException("word_to_bind_mode",
                                   R"(Invalid value for NumaBind. Expected "attempt" or "forced".)");
}

Mode next_mode(Mode mode) { return static_cast<Mode>((static_cast<u32>(mode) + 1) % 3); }

bool AllocationReport::is_ordinary() const {
  return page_size == kSmallPageBytes && locked_bytes == 0 && node_bytes.size() <= 1;
}

std::vector<std::pair<std::string, std::string>> AllocationReport::rows() const {
  std::vector<std::pair<std::string, std::string>> rows = {
      {"Total Bytes:", console::format_bytes(total_bytes)},
      {"Page Size:", console::format_with_commas(page_size)},
      {"Large Page Bytes:", console::format_bytes(large_page_bytes)},
      {"Locked Bytes:", console::format_bytes(locked_bytes)}};
  for (const auto& [node, bytes] : node_bytes)
    rows.emplace_back("NUMA node " + std::to_string(node) + ":", console::format_bytes(bytes));
  return rows;
}

void AllocationReport::print() const {
  for (const auto& [label, value] : rows()) {
    console::print_padded(24, "    " + label, 'w');
    console::println(value, 'G');
  }
  console::set_colour('w');
}

namespace {

/// Words i, i+1, i+2, i+3 of the pattern at once: its second difference is constant, so a step is two
/// additions.
using FourWords = u32 __attribute__((vector_size(16)));

constexpr u32 pattern_word(u32 i) { return i * i * 0xC82B9175u - 933796325u; }

FourWords four_pattern_words(u32 i) {
  return FourWords{pattern_word(i), pattern_word(i + 1), pattern_word(i + 2), pattern_word(i + 3)};
}

/// The aligned words of a block.
struct PatternWords {
  char* begin;
  u64 count;
};

// Marks the ends of a block of at least one byte.
PatternWords mark_ends(void* address, u64 length_bytes) {
  char* const begin = static_cast<char*>(address);
  char* const end = begin + length_bytes;
  begin[0] = '{';
  end[-1] = '@';
  const std::uintptr_t first_word = (reinterpret_cast<std::uintptr_t>(begin) + 3) & ~std::uintptr_t{3};
  const std::uintptr_t last_end = reinterpret_cast<std::uintptr_t>(end) & ~std::uintptr_t{3};
  const u64 count = last_end <= first_word ? 0 : (last_end - first_word) / 4;
  return {begin + (first_word - reinterpret_cast<std::uintptr_t>(begin)), count};
}

// Words [first, last) of the pattern.
void write_pattern(PatternWords words, u64 first, u64 last) {
  const u32 start = static_cast<u32>(first);
  FourWords value = four_pattern_words(start);
  FourWords step = four_pattern_words(start + 4) - value;
  const FourWords step_growth = four_pattern_words(start + 8) - four_pattern_words(start + 4) - step;
  u64 i = first;
  for (; i + 4 <= last; i += 4) {
    std::memcpy(words.begin + 4 * i, &value, sizeof value);
    value += step;
    step += step_growth;
  }
  std::memcpy(words.begin + 4 * i, &value, 4 * (last - i));
}

}  // namespace

void touch_memory(void* address, u64 length_bytes) {
  if (length_bytes == 0) return;
  const PatternWords words = mark_ends(address, length_bytes);
  write_pattern(words, 0, words.count);
}

void touch_memory(void* address, u64 length_bytes, const ParallelContext& parallel) {
  if (length_bytes == 0) return;
  const u64 pieces = parallel.tds / 4;
  if (pieces < 2) {
    const PatternWords words = mark_ends(address, length_bytes);
    fork_range(parallel.parallelizer, 0, parallel.tds, [=](u64 k) {
      write_pattern(words, words.count / parallel.tds * k,
                    k + 1 < parallel.tds ? words.count / parallel.tds * (k + 1) : words.count);
    });
    return;
  }
  const u64 piece_bytes = (length_bytes + pieces - 1) / pieces;
  fork_range(parallel.parallelizer, 0, pieces, [=](u64 k) {
    const u64 begin = std::min(k * piece_bytes, length_bytes);
    touch_memory(static_cast<char*>(address) + begin, std::min(piece_bytes, length_bytes - begin));
  });
}

void populate(void* address, u64 length_bytes, const ParallelContext& parallel) {
  const u64 pages = (length_bytes + kSmallPageBytes - 1) / kSmallPageBytes;
  const u64 pieces = std::min(parallel.tds, pages);
  fork_range(parallel.parallelizer, 0, pieces, [=](u64 k) {
    for (u64 page = pages * k / pieces; page < pages * (k + 1) / pieces; ++page)
      static_cast<volatile char*>(address)[page * kSmallPageBytes] = 0;
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
