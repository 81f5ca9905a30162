#include "digits/ovd_file.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "digits/digit_words.h"
#include "frame/exceptions.h"
#include "swap/raw_io_buffer.h"

namespace orl {
namespace {

// Words a task packs or unpacks; below this a task costs more than its work.
constexpr u64 kBlockWords = 16384;

template <class Body>
void for_word_blocks(u64 count, ParallelContext parallel, Body&& body) {
  const u64 blocks = std::clamp<u64>(count / kBlockWords, 1, parallel.tds);
  const u64 block = (count + blocks - 1) / blocks;
  if (blocks == 1) return body(u64{0}, count);
  fork_range(parallel.parallelizer, 0, blocks,
             [&](u64 i) { body(std::min(i * block, count), std::min((i + 1) * block, count)); });
}

// Words of a file begin right behind its header, at any byte, so they are moved rather than dereferenced.
u64 load_word(const u8* data, u64 index) {
  u64 word;
  std::memcpy(&word, data + 8 * index, 8);
  return word;
}
void store_word(u8* data, u64 index, u64 word) { std::memcpy(data + 8 * index, &word, 8); }

u64 file_bytes(const OvdHeader& header) {
  return header.data_offset + 8 * words_for(header.radix, header.digits());
}

OvdHeader with_data_offset(OvdHeader header) {
  header.data_offset = format_header(header).size();
  return header;
}

}  // namespace

std::string unfinished_ovd_name(const std::string& path) {
  return path.substr(0, path.size() - std::strlen(".ovd")) + " (incomplete).ovd";
}

BasicOvdFileWriter::BasicOvdFileWriter(const std::string& path, OvdHeader header)
    : header_(with_data_offset(std::move(header))),
      file_(unfinished_ovd_name(path), path, page_span_bytes(file_bytes(header_))) {
  alignas(kIoAlignment) u8 pages[4 * kIoAlignment];
  const std::string text = format_header(header_);
  file_.update(0, text.size(), LinearHeapBuffer(pages, sizeof pages), "BasicOvdFileWriter()",
               [&](u8* data) { std::memcpy(data, text.data(), text.size()); });
}

u64 BasicOvdFileWriter::buffer_bytes(u32 radix, u64 count) {
  return page_span_bytes(8 * (words_for(radix, count) + 2));
}

void BasicOvdFileWriter::store_digits_B(const u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                                        ParallelContext parallel) {
  constexpr const char* kFunction = "BasicOvdFileWriter::store_digits_B()";
  if (offset + count > header_.digits()) throw InvalidParametersException(kFunction, "Out of range.");
  if (count == 0) return;
  const u32 radix = header_.radix;
  const u64 width = digits_per_word(radix);
  const u64 first = offset / width, end = (offset + count + width - 1) / width;
  std::atomic<bool> bad{false};

  // A word of which only digits [begin, begin + length) are given keeps its others.
  const auto merge = [&](u8* data, u64 index, u64 begin, u64 length, const u8* given) {
    const u64 stored = load_word(data, index);
    u8 all[19];
    const u64 known = stored <= largest_word(radix) ? stored : 0;
    unpack_words(radix, all, &known, 1, 1);
    std::memcpy(all + begin, given, length);
    u64 word;
    if (pack_words(radix, &word, all, 1)) bad = true;
    store_word(data, index, word);
  };

  const auto fill = [&](u8* data) {
    const u8* next = digits;
    u64 index = first, left = count;
    if (const u64 begin = offset % width; begin != 0) {
      const u64 length = std::min(width - begin, left);
      merge(data, 0, begin, length, next);
      next += length;
      left -= length;
      index++;
    }
    const u64 whole = left / width;
    for_word_blocks(whole, parallel, [&](u64 begin, u64 stop) {
      for (u64 i = begin; i < stop; i++) {
        u64 word;
        if (pack_words(radix, &word, next + i * width, 1)) bad = true;
        store_word(data, index - first + i, word);
      }
    });
    if (const u64 rest = left % width; rest != 0)
      merge(data, index - first + whole, 0, rest, next + whole * width);
    // Thrown before anything is stored.
    if (bad) throw InvalidParametersException(kFunction, "Invalid Digit");
  };
  // A word that is given in part may begin or end with its page: the pages at both ends are read all the
  // same.
  file_.update(header_.data_offset + 8 * first, 8 * (end - first), buffer, kFunction, fill,
               offset % width != 0 || (offset + count) % width != 0);
}

void BasicOvdFileWriter::finish() { file_.finish(file_bytes(header_)); }

BasicOvdFileReader::BasicOvdFileReader(const std::string& path)
    : file_(path, RawFile::Mode::kRead), header_(parse_header(file_)) {}

namespace {

const u8* read_word_bytes(const RawFile& file, const OvdHeader& header, u64 offset, u64 count,
                          LinearHeapBuffer buffer) {
  constexpr const char* kFunction = "BasicOvdFileReader::read_words()";
  const u64 begin = header.data_offset + 8 * offset;
  const PageSpan span = cut_pages(buffer, begin, 8 * count, kFunction);
  const u64 got = file.load_up_to(span.pages, span.file_offset, span.length);
  if (span.file_offset + got < begin + 8 * count)
    throw FileIO::FileException(kFunction, "Read error.", file.path(), 0);
  return span.data;
}

}  // namespace

const u64* BasicOvdFileReader::read_words(u64 offset, u64 count, LinearHeapBuffer buffer) const {
  const u8* bytes = read_word_bytes(file_, header_, offset, count, buffer);
  // The window's start is aligned, so the words fit before the bytes that they came from.
  std::memmove(buffer.ptr, bytes, 8 * count);
  return static_cast<const u64*>(buffer.ptr);
}

void BasicOvdFileReader::load_digits(u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                                     ParallelContext parallel) const {
  if (count == 0) return;
  const u32 radix = header_.radix;
  const u64 width = digits_per_word(radix);
  const u64 first = offset / width, end = (offset + count + width - 1) / width;
  const u8* const data = read_word_bytes(file_, header_, first, end - first, buffer);
  std::atomic<bool> bad{false};
  const u64 largest = largest_word(radix);
  for_word_blocks(end - first, parallel, [&](u64 begin, u64 stop) {
    for (u64 i = begin; i < stop; i++) {
      const u64 word = load_word(data, i);
      if (word > largest) {
        bad = true;
        return;
      }
      const u64 word_begin = (first + i) * width;
      const u64 from = std::max(word_begin, offset), to = std::min(word_begin + width, offset + count);
      if (to - from == width)
        unpack_words(radix, digits + (from - offset), &word, 1, 1);
      else
        unpack_part(radix, digits + (from - offset), word, from - word_begin, to - from);
    }
  });
  if (bad) throw InvalidParametersException("BasicOvdFileReader::load_digits()", "Invalid Digit");
}

}  // namespace orl
