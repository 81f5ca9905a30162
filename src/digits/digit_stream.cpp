// What text files and compressed files have in common.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <vector>

#include "core/exceptions.h"
#include "core/output.h"
#include "digits/digit_writer.h"
#include "digits/ovd_set.h"
#include "digits/text_file.h"
#include "files/file_calls.h"
#include "files/path_check.h"

namespace orl {
namespace {

constexpr u64 kMaxBlockDigits = 4194304;  // larger blocks only leave the cache

}  // namespace

std::string digit_file_name(const std::string& constant, const std::string& algorithm, u32 radix) {
  switch (radix) {
    case 10:
      return constant + " - Dec - " + algorithm;
    case 16:
      return constant + " - Hex - " + algorithm;
    default:
      throw InvalidParametersException("digit_file_name()", "Invalid Base");
  }
}

std::unique_ptr<DigitWriter> make_digit_writer(const std::string& path, const std::string& name,
                                               const std::string& first_digits, u32 radix,
                                               u64 digits_per_file, u64 total_digits) {
  if (digits_per_file == 0)
    return std::make_unique<BasicTextWriter>(with_separator(path) + name + ".txt", first_digits, radix,
                                             total_digits);
  return std::make_unique<BasicOvdSetWriter>(path, name, first_digits, radix, digits_per_file, total_digits);
}

std::unique_ptr<DigitReader> open_digits(const std::string& path, u32 radix) {
  if (!path.ends_with(".ovd")) return std::make_unique<BasicTextReader>(path, radix);
  auto reader = std::make_unique<BasicOvdSetReader>(path);
  if (radix != 0 && reader->radix() != radix)
    throw InvalidParametersException("open_digits()", "Radix does not match.");
  return reader;
}

namespace {

void take_name(const std::string& path, const std::string& unfinished) {
  if (file_calls().rename(path.c_str(), unfinished.c_str()) != 0)
    notice_line("Unable to rename file: " + path, 'R');
}

}  // namespace

void mark_unfinished(const std::string& path) {
  if (!path.ends_with(".ovd")) return take_name(path, unfinished_text_name(path));
  // Files may be missing: whatever has the stem, a number and the extension.
  const std::string stem = ovd_stem(path);
  const std::filesystem::path folder = std::filesystem::path(stem).parent_path();
  std::error_code ignored;
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder.empty() ? "." : folder, ignored)) {
    const std::string file = (folder / entry.path().filename()).string();
    const bool numbered = file.size() > stem.size() + std::strlen(".ovd");
    if (numbered && file.ends_with(".ovd") && ovd_stem(file) == stem) files.push_back(file);
  }
  for (const std::string& file : files) take_name(file, unfinished_ovd_name(file));
}

u64 block_for_window(const DigitReader& reader, u64 bytes, u64 blocks) {
  const auto fits = [&](u64 units) {
    return units == 0 || 64 * units * blocks + reader.buffer_bytes(64 * units) <= bytes;
  };
  u64 low = 0, high = bytes / 64 + 1;  // low fits, high does not
  while (high - low > 1) {
    const u64 middle = low + (high - low) / 2;
    (fits(middle) ? low : high) = middle;
  }
  return 64 * low;
}

void DigitReader::load_stats(DigitStats& stats, u64 offset, u64 count, LinearHeapBuffer buffer,
                             ParallelContext parallel) {
  if (count == 0) return;
  const u64 pair = parallel.tds > 1 ? block_for_window(*this, buffer.size, 2) : 0;
  const u64 block = std::min(pair ? pair : block_for_window(*this, buffer.size), kMaxBlockDigits);
  if (block == 0)
    throw BufferTooSmallException("DigitReader::load_stats()", buffer.size, 64 + buffer_bytes(64));
  u8* digits = buffer.spawn_words<u8>(block);
  u8* next = pair ? buffer.spawn_words<u8>(block) : digits;
  const auto length_at = [&](u64 done) { return std::min(block, count - done); };
  const auto load = [&](u64 done, ParallelContext share) {
    if (done < count) load_digits(next, offset + done, length_at(done), buffer, share);
  };
  load(0, parallel);
  for (u64 done = 0; done < count; done += block) {
    std::swap(digits, next);
    const auto append = [&](ParallelContext share) { stats.append(digits, length_at(done), share); };
    if (pair) {
      fork_pair_or_throw(
          parallel.parallelizer, [&] { append(parallel.left()); },
          [&] { load(done + block, parallel.right()); });
    } else {
      append(parallel);
      load(done + block, parallel);
    }
  }
}

}  // namespace orl
