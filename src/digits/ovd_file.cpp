#include "digits/ovd_file.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "core/exceptions.h"
#include "core/format.h"
#include "digits/digit_blocks.h"
#include "digits/digit_reader.h"
#include "digits/digit_words.h"

namespace orl {
namespace {

// Words that a task packs or unpacks, at least.
constexpr u64 kBlockWords = 16384;
// Words that a task moves between the file's bytes and an aligned array.
constexpr u64 kPieceWords = 256;

// Words of a file begin right behind its header, at any byte, so they are moved rather than dereferenced.
u64 load_word(const u8* data, u64 index) {
  u64 word;
  std::memcpy(&word, data + 8 * index, 8);
  return word;
}
void store_word(u8* data, u64 index, u64 word) { std::memcpy(data + 8 * index, &word, 8); }

// The digits of a stored word; those of an unwritten one are zeros.
void unpack_stored(u32 radix, u8* digits, u64 stored) {
  const u64 word = stored <= largest_word(radix) ? stored : 0;
  unpack_words(radix, digits, &word, 1, 1);
}

bool valid(u32 radix, const u8* digits, u64 count) {
  return std::all_of(digits, digits + count, [&](u8 digit) { return digit < radix; });
}

u64 file_bytes(const OvdHeader& header) {
  return header.data_offset + 8 * words_for(header.radix, header.digits());
}

OvdHeader make_header(const std::string& first_digits, u32 radix, u64 digits_per_file, u64 total_digits,
                      u64 file_id) {
  OvdHeader header;
  header.first_digits = first_digits;
  header.radix = radix;
  header.block_size = digits_per_file;
  header.total_digits = total_digits;
  header.block_id = file_id;
  header.data_offset = format_header(header).size();
  return header;
}

}  // namespace

BasicOvdFileWriter::BasicOvdFileWriter(const std::string& name, const std::string& first_digits, u32 radix,
                                       u64 digits_per_file, u64 total_digits, u64 file_id)
    : header_(make_header(first_digits, radix, digits_per_file, total_digits, file_id)),
      file_(name, file_bytes(header_)) {
  const std::string text = format_header(header_);
  file_.update(0, text.size(), [&](u8* data) { std::memcpy(data, text.data(), text.size()); });
}

u64 BasicOvdFileWriter::buffer_bytes(u32 radix, u64 count) {
  return page_span_bytes(8 * words_for(radix, count));
}

// Whole words, packed before the file is locked.
void BasicOvdFileWriter::store_words(const u8* digits, u64 first_word, u64 count, LinearHeapBuffer buffer,
                                     ParallelContext parallel) {
  constexpr const char* kFunction = "BasicOvdFileWriter::store_digits_B()";
  const u32 radix = header_.radix;
  const u64 width = digits_per_word(radix);
  const u64 offset = header_.data_offset + 8 * first_word;
  const PageSpan span = cut_pages(buffer, offset, 8 * count, kFunction);
  std::atomic<bool> bad{false};
  for_blocks(count, kBlockWords, parallel, [&](u64 begin, u64 end) {
    u64 words[kPieceWords];
    for (u64 i = begin; i < end; i += kPieceWords) {
      const u64 piece = std::min(kPieceWords, end - i);
      if (pack_words(radix, words, digits + i * width, piece)) bad = true;
      std::memcpy(span.data + 8 * i, words, 8 * piece);
    }
  });
  if (bad) throw InvalidParametersException(kFunction, "Invalid Digit");
  file_.store(span, offset, 8 * count);
}

// Digits [begin, begin + count) of one word; the word keeps its others.
void BasicOvdFileWriter::merge_word(const u8* digits, u64 word, u64 begin, u64 count) {
  file_.update(header_.data_offset + 8 * word, 8, [&](u8* data) {
    u8 all[19];
    unpack_stored(header_.radix, all, load_word(data, 0));
    std::memcpy(all + begin, digits, count);
    u64 merged;
    pack_words(header_.radix, &merged, all, 1);
    store_word(data, 0, merged);
  });
}

void BasicOvdFileWriter::store_digits_B(const u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                                        ParallelContext parallel) {
  constexpr const char* kFunction = "BasicOvdFileWriter::store_digits_B()";
  if (offset > header_.digits() || count > header_.digits() - offset)
    throw InvalidParametersException(kFunction, "Out of range.");
  const u32 radix = header_.radix;
  const u64 width = digits_per_word(radix);
  const u64 begin = offset % width;
  const u64 head = std::min(begin == 0 ? 0 : width - begin, count);
  const u64 whole = (count - head) / width;
  const u64 tail = count - head - whole * width;
  const u64 first = (offset + head) / width;  // whole words, and the tail behind them, begin here
  const u8* const tail_digits = digits + (count - tail);
  if (!valid(radix, digits, head) || !valid(radix, tail_digits, tail))
    throw InvalidParametersException(kFunction, "Invalid Digit");
  if (whole != 0) store_words(digits + head, first, whole, buffer, parallel);
  if (head != 0) merge_word(digits, offset / width, begin, head);
  if (tail != 0) merge_word(tail_digits, first + whole, 0, tail);
}

void BasicOvdFileWriter::seal() { file_.seal(file_bytes(header_)); }

BasicOvdFileReader::BasicOvdFileReader(const std::string& path)
    : file_(path, RawFile::Mode::kRead), header_(parse_header(file_)) {}

u64 BasicOvdFileReader::buffer_bytes(u32 radix, u64 count) {
  // One word more: the stretch may begin and end within a word.
  return page_span_bytes(8 * (words_for(radix, count) + 1));
}

const u8* BasicOvdFileReader::read_word_bytes(u64 offset, u64 count, LinearHeapBuffer buffer) const {
  constexpr const char* kFunction = "BasicOvdFileReader::read_words()";
  const u64 begin = header_.data_offset + 8 * offset;
  const PageSpan span = cut_pages(buffer, begin, 8 * count, kFunction);
  const std::lock_guard lock(mutex_);
  const u64 got = file_.load_up_to(span.pages, span.file_offset, span.length);
  if (span.file_offset + got < begin + 8 * count)
    throw_short_file(kFunction, span.file_offset + got, file_bytes(header_), file_.path());
  return span.data;
}

const u64* BasicOvdFileReader::read_words(u64 offset, u64 count, LinearHeapBuffer buffer) const {
  const u8* bytes = read_word_bytes(offset, count, buffer);
  // The window's start is aligned, so the words fit before the bytes that they came from.
  std::memmove(buffer.ptr, bytes, 8 * count);
  return static_cast<const u64*>(buffer.ptr);
}

void BasicOvdFileReader::load_digits(u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                                     ParallelContext parallel) const {
  if (count == 0) return;
  const u32 radix = header_.radix;
  const u64 width = digits_per_word(radix), largest = largest_word(radix);
  const u64 first = offset / width, end = (offset + count + width - 1) / width;
  const u8* const data = read_word_bytes(first, end - first, buffer);
  std::atomic<bool> bad{false};
  const auto part = [&](u64 index, u64 begin, u64 length, u8* to) {
    const u64 word = load_word(data, index);
    if (word > largest) bad = true;
    unpack_part(radix, to, word, begin, length);
  };
  const u64 begin = offset % width;
  const u64 head = std::min(begin == 0 ? 0 : width - begin, count);
  const u64 whole = (count - head) / width, tail = count - head - whole * width;
  const u64 first_whole = head != 0;
  if (head != 0) part(0, begin, head, digits);
  for_blocks(whole, kBlockWords, parallel, [&](u64 from, u64 to) {
    u64 words[kPieceWords];
    for (u64 i = from; i < to; i += kPieceWords) {
      const u64 piece = std::min(kPieceWords, to - i);
      std::memcpy(words, data + 8 * (first_whole + i), 8 * piece);
      if (*std::max_element(words, words + piece) > largest) bad = true;
      unpack_words(radix, digits + head + i * width, words, 1, piece);
    }
  });
  if (tail != 0) part(first_whole + whole, 0, tail, digits + (count - tail));
  if (!bad) return;
  u64 at = 0;
  while (load_word(data, at) <= largest) at++;
  const u64 digit = header_.begin() + (first + at) * width;
  throw_invalid_digit("BasicOvdFileReader::load_digits()",
                      "The word of the digits " + format_with_commas(digit + 1) + " to " +
                          format_with_commas(digit + width) + " after the point, at byte " +
                          format_with_commas(header_.data_offset + 8 * (first + at) + 1) +
                          " of the file, is none: it was not written, or it is damaged.",
                      path());
}

void BasicOvdFileReader::check_as_written(const OvdHeader& expected) const {
  const auto require = [&](bool same, const char* text) {
    if (!same) throw InconsistentMetaData("BasicOvdFileReader::check_as_written()", path(), text);
  };
  const std::string text = format_header(expected);
  alignas(kIoAlignment) u8 pages[2 * kIoAlignment];
  u64 size;
  {
    const std::lock_guard lock(mutex_);
    size = file_.size();
    file_.load_up_to(pages, 0, kIoAlignment);
  }
  require(header_.data_offset == text.size() && std::memcmp(pages, text.data(), text.size()) == 0,
          "Header does not match.");
  require(size == file_bytes(header_), "File size does not match.");
  const u64 width = digits_per_word(header_.radix), words = words_for(header_.radix, header_.digits());
  const u64 used = header_.digits() - (words - 1) * width;
  u8 last[19];
  unpack_stored(header_.radix, last,
                load_word(read_word_bytes(words - 1, 1, LinearHeapBuffer(pages, sizeof pages)), 0));
  require(std::all_of(last + used, last + width, [](u8 digit) { return digit == 0; }),
          "Last word does not match.");
}

}  // namespace orl
