#include "session/digit_output.h"

#include <algorithm>
#include <array>
#include <exception>
#include <optional>

#include "core/exceptions.h"
#include "core/fault_point.h"
#include "digits/digit_text.h"
#include "digits/digit_words.h"
#include "digits/hashed_digits.h"
#include "digits/page_writer.h"
#include "files/raw_io_buffer.h"
#include "system/machine_fault.h"
#include "words/hash.h"

namespace orvane {
namespace {

using orl::BufferTooSmallException;
using orl::DigitStats;
using orl::DigitWriter;
using orl::InvalidParametersException;
using orl::kIoAlignment;
using orl::LinearHeapBuffer;
using orl::s64;
using orl::u8;

constexpr u64 kReadOverhead = 8320;       // what a read-back needs beside its block
constexpr u64 kMinBlockDigits = 65536;    // of a pass; smaller blocks cost calls
constexpr u64 kMaxBlockDigits = 4194304;  // larger ones only leave the cache
constexpr u64 kForkWords = 16384;         // below this a task costs more than its work

// Hash of Floor(|x| * radix^digit_count) from the words themselves, without making digits.
u64 hash_of_words(const DigitWords& number, u64 digit_count, orl::ParallelContext parallel) {
  const u64 width = orl::digits_per_word(number.radix);
  const u64 base = orl::hash_pow(number.radix, width);
  const u64 whole = digit_count / width, rest = digit_count % width;
  const u64* const lowest = number.words + (number.word_count - whole);
  u64 hash = orl::hash_mul(number.integer_part, orl::hash_pow(base, whole));
  hash = orl::hash_add(hash, orl::bp_hash_base(0, base, lowest, whole, parallel));
  if (rest == 0) return hash;
  // The word below is cut after its first `rest` digits.
  u64 top = lowest[-1];
  for (u64 i = rest; i < width; i++) top /= number.radix;
  return orl::hash_mul_add(hash, orl::hash_pow(number.radix, rest), top);
}

// Raw digits of `words` words from first_word on, in stream order.
void make_digits(u8* digits, const DigitWords& number, u64 first_word, u64 words,
                 orl::ParallelContext parallel) {
  const u64 width = orl::digits_per_word(number.radix);
  const u64* const top = number.words + (number.word_count - 1 - first_word);
  const u64 parts = std::clamp<u64>(words / kForkWords, 1, parallel.tds);
  const auto begin_of = [&](u64 part) { return words / parts * part + std::min(part, words % parts); };
  const auto run = [&](u64 part) {
    const u64 begin = begin_of(part), end = begin_of(part + 1);
    orl::unpack_words(number.radix, digits + begin * width, top - begin, -1, end - begin);
  };
  if (parts == 1) return run(0);
  orl::fork_range(parallel.parallelizer, 0, parts, run);
}

// A stretch of the stream as raw digits.
struct Block {
  u8* digits = nullptr;
  u64 begin = 0;  ///< stream index of the first
  u64 count = 0;  ///< 0: empty
};

// Hashes and stores a block and makes the next; side by side where the context allows it. On two tasks the
// hash, which is one chain of work, has a thread to itself while it lasts. A failure arrives here, whichever
// thread it struck.
template <class Hash, class Store, class Make>
void run_stages(orl::ParallelContext parallel, Hash&& hash, Store&& store, Make&& make) {
  if (parallel.tds == 1) {
    hash();
    store(parallel);
    return make(parallel);
  }
  const auto store_share = [&] { store(parallel.right()); };
  const auto make_all = [&] { make(parallel); };
  orl::fork_pair_or_throw(parallel.parallelizer, hash, [&] {
    if (parallel.tds > 2) return orl::fork_pair_or_throw(parallel.parallelizer, store_share, make_all);
    store_share();
    make_all();
  });
}

// The stream's digits through the hasher, the writer and the statistics, block by block. With more than one
// task the digits of a block are made while those of the one before are hashed and stored.
//
// The statistics, which are held against the words, come last: a digit that changes before it was hashed and
// stored is found in them. Each change of a digit changes the integer, or leaves a digit uncounted.
void digit_pass(const OutputContext& context, const DigitWords& number, DigitWriter* writer,
                OutputResult& result) {
  const u64 width = orl::digits_per_word(number.radix), digit_count = result.digit_count;
  const u64 buffers = context.parallel.tds > 1 ? 2 : 1;
  const auto block_bytes = [&](u64 words) {
    return buffers * LinearHeapBuffer::cut_bytes<u8>(words * width) +
           (writer ? writer->buffer_bytes(words * width) : 0);
  };
  const u64 total_words = (digit_count + width - 1) / width;
  u64 block_words = std::min(total_words, kMaxBlockDigits / width);
  while (block_words > 1 && block_bytes(block_words) > context.buffer.size) block_words /= 2;
  LinearHeapBuffer window = context.buffer;
  Block blocks[2];
  for (u64 i = 0; i < buffers; i++) blocks[i].digits = window.cut<u8>(block_words * width);

  DigitStats stats(number.radix);
  stats.hash = number.integer_part;
  orl::DigitHasher hasher(1);
  // Counts what a buffer holds, then fills it from `word` on.
  const auto renew = [&](Block& block, u64 word, orl::ParallelContext parallel) {
    stats.append(block.digits, block.count, parallel);
    const u64 words = word < total_words ? std::min(block_words, total_words - word) : 0;
    block.begin = word * width;
    block.count = words == 0 ? 0 : std::min(words * width, digit_count - block.begin);
    if (words != 0) make_digits(block.digits, number, word, words, parallel);
  };
  renew(blocks[0], 0, context.parallel);
  for (u64 word = 0, i = 0; word < total_words; word += block_words, i++) {
    const Block& block = blocks[i % buffers];
    const u64 end = block.begin + block.count;
    orl::fault_point("digit buffer", block.digits, block.count);
    run_stages(
        context.parallel,
        [&] {
          result.last_digits.set(number.radix, block.digits, block.count);
          hasher.append(block.digits, block.count);
        },
        [&](orl::ParallelContext parallel) {
          if (writer) writer->store_digits(block.digits, block.begin, block.count, window, parallel);
        },
        [&](orl::ParallelContext parallel) {
          renew(blocks[(i + 1) % buffers], word + block_words, parallel);
        });
    context.status.show_count(writer ? "Writing...    " : "Processing... ", end,
                              writer ? "  digits written" : "  digits analyzed");
  }
  for (const Block& block : blocks) stats.append(block.digits, block.count, context.parallel);
  result.counts = stats.counts;
  result.digit_hash = orl::hash_canon(stats.hash);
  result.sha256 = hasher.finish();
}

OutputResult make_result(const OutputContext& context, const DigitWords& number, u64 digit_count) {
  if (digit_count > number.word_count * orl::digits_per_word(number.radix))
    throw InvalidParametersException("make_result()", "The number has fewer digits than asked for.");
  OutputResult result;
  result.radix = number.radix;
  result.digit_count = digit_count;
  result.first_digits = first_digits_text(number);
  result.hash = orl::hash_canon(hash_of_words(number, digit_count, context.parallel));
  return result;
}

// Before the digits are made, after their hash is known: whatever changes in them now is found later.
void let_faults_in(const DigitWords& number, u64 digit_count) {
  const u64 width = orl::digits_per_word(number.radix);
  const u64 used = (digit_count + width - 1) / width;
  orl::fault_point("digit words", const_cast<u64*>(number.words + (number.word_count - used)),
                   used * sizeof(u64));
}

// The digits before the point, as a number; each is checked.
u64 read_first_digits(const std::string& text, u32 radix) {
  const char* const function = "read_check()";
  if (text.find('.') == std::string::npos)
    throw orl::ParseException(function,
                              "A decimal place was not found within the first 63 bytes of the file.");
  if (radix != 10 && radix != 16) throw InvalidParametersException(function, "Invalid radix.");
  u64 value = 0;
  for (char c : text) {
    if (c == '.') break;
    const u32 digit = orl::digit_value(c);
    if (digit >= radix)
      throw InvalidParametersException(function, radix == 10 ? "Invalid decimal digit in first digits."
                                                             : "Invalid hexadecimal digit in first digits.");
    value = value * radix + digit;
  }
  return value;
}

// Every digit of the finished files, from the first.
void read_back(const OutputContext& context, orl::DigitReader& reader, u64 digit_count, DigitStats& stats) {
  stats.hash = read_first_digits(reader.first_digits(), reader.radix());
  // Whole pages; the digits of larger blocks only wait longer for the next line on the console.
  const u64 block = std::min(context.buffer.size - kReadOverhead, 4 * kMaxBlockDigits) & ~(kIoAlignment - 1);
  for (u64 done = 0; done < digit_count;) {
    const u64 count = std::min(block, digit_count - done);
    reader.load_stats(stats, done, count, context.buffer, context.parallel);
    done += count;
    context.status.show_count("Verifying...    ", done, "  digits hashed");
  }
}

}  // namespace

std::string first_digits_text(const DigitWords& number) {
  std::string text;
  u64 rest = number.integer_part;
  do text.insert(text.begin(), "0123456789abcdef"[rest % number.radix]);
  while (rest /= number.radix);
  return text + ".";
}

std::string digits_text(const DigitWords& number, u64 offset, u64 count) {
  const u64 width = orl::digits_per_word(number.radix), skipped = offset % width;
  const u64 words = (skipped + count + width - 1) / width;
  std::vector<u8> digits(words * width);
  const u64* const top = number.words + (number.word_count - 1 - offset / width);
  orl::unpack_words(number.radix, digits.data(), top, -1, words);
  std::string text(count, '\0');
  orl::digits_to_text(text.data(), digits.data() + skipped, count);
  return text;
}

std::string counts_text(const orl::DigitCounts& counts) {
  std::string text;
  for (u32 digit = 0; digit < counts.radix(); digit++)
    text += (digit ? " " : "") + std::to_string(counts.count(digit));
  return text;
}

u64 output_buffer_bytes() {
  return 2 * LinearHeapBuffer::cut_bytes<u8>(kMinBlockDigits) + orl::page_span_bytes(kMinBlockDigits) +
         kReadOverhead + kIoAlignment;
}

OutputResult write_digits(const OutputContext& context, const DigitWords& number, u64 digit_count,
                          const OutputTarget& target) {
  OutputResult result = make_result(context, number, digit_count);
  const std::string name = orl::digit_file_name(target.constant, target.algorithm, number.radix);
  result.files = orl::make_digit_writer(target.path, name, result.first_digits, number.radix,
                                        target.digits_per_file, digit_count);
  let_faults_in(number, digit_count);
  digit_pass(context, number, result.files.get(), result);
  result.path = result.files->path();
  result.digits_per_file = target.digits_per_file;
  result.files->seal();
  std::string unfinished = result.files->unfinished_path();
  orl::fault_point("digit file", unfinished.data(), unfinished.size());
  return result;
}

OutputResult process_digits(const OutputContext& context, const DigitWords& number, u64 digit_count) {
  OutputResult result = make_result(context, number, digit_count);
  let_faults_in(number, digit_count);
  digit_pass(context, number, nullptr, result);
  return result;
}

void verify_binary_output(const OutputContext& context, const DigitWords& number,
                          const OutputResult& result) {
  context.events.add("Verifying Binary Output");
  context.status.println("Verifying Binary Output:");
  const orl::StatusFrame frame(context.status, "Hashing: ");
  verify_digits(context, number, result);
}

void verify_digits(const OutputContext& context, const DigitWords& number, const OutputResult& result) {
  const u64 after = orl::hash_canon(hash_of_words(number, result.digit_count, context.parallel));
  if (after == result.hash && after == result.digit_hash && result.counts.total() == result.digit_count)
    return;
  const u64 before = after == result.hash ? result.digit_hash : result.hash;
  orl::end_at_wrong_result(
      {"Before Hash = " + std::to_string(before), "After  Hash = " + std::to_string(after)},
      "Data Corruption Detected: Checksum Mismatch");
}

void read_check(const OutputContext& context, const OutputResult& result) {
  if (context.buffer.size < kReadOverhead + kIoAlignment)
    throw BufferTooSmallException("read_check()", context.buffer.size, kReadOverhead + kIoAlignment);
  const char* const title = result.radix == 10 ? "Verifying Decimal Output" : "Verifying Hexadecimal Output";
  context.events.add(title);
  context.status.println(std::string(title) + ":");

  DigitStats stats(result.radix);
  const auto reader = orl::open_digits(result.files->unfinished_path(), result.radix);
  read_back(context, *reader, result.digit_count, stats);
  if (orl::hash_canon(stats.hash) == result.hash && stats.counts == result.counts)
    return reader->check_as_written(result.first_digits, result.digits_per_file, result.digit_count);
  orl::end_at_wrong_result(
      {"Pre-Write Hash = " + std::to_string(result.hash),
       "Read-Back Hash = " + std::to_string(orl::hash_canon(stats.hash)),
       "Pre-Write Counts = " + counts_text(result.counts), "Read-Back Counts = " + counts_text(stats.counts)},
      "Digit output failed. Metadata cross-check doesn't match.");
}

void publish_digits(const OutputResult& result) {
  if (result.files) result.files->publish(orl::DigitWriter::Pieces::kRemoved);
}

}  // namespace orvane
