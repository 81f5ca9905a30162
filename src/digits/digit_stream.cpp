// What text files and compressed files have in common.
#include <algorithm>

#include "core/exceptions.h"
#include "core/format.h"
#include "digits/digit_writer.h"
#include "digits/ovd_set.h"
#include "digits/text_file.h"
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

std::unique_ptr<DigitReader> DigitWriter::close_and_get_basic_reader() {
  seal();
  publish(Pieces::kKept);
  return open_digits(path(), radix());
}

void throw_invalid_digit(const char* function, const std::string& what, const std::string& path) {
  throw InvalidParametersException(function, "Invalid Digit\n\n" + what + "\nPath: " + path);
}

void throw_short_file(const char* function, u64 size, u64 needed, const std::string& path) {
  throw FileIO::FileException(function,
                              "Read error.\n\nThe file is too short: it has " + format_with_commas(size) +
                                  " bytes, and " + format_with_commas(needed) + " are needed.",
                              path, 0);
}

std::unique_ptr<DigitReader> open_digits(const std::string& path, u32 radix) {
  if (!path.ends_with(".ovd")) return std::make_unique<BasicTextReader>(path, radix);
  auto reader = std::make_unique<BasicOvdSetReader>(path);
  if (radix != 0 && reader->radix() != radix)
    throw InvalidParametersException("open_digits()", "Radix does not match.");
  return reader;
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
