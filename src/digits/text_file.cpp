#include "digits/text_file.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "core/exceptions.h"
#include "core/format.h"
#include "digits/digit_blocks.h"
#include "digits/digit_text.h"
#include "files/raw_io_buffer.h"

namespace orl {
namespace {

// Digits of a task, at least.
constexpr u64 kBlockDigits = 262144;

// The span in which the point must stand.
constexpr u64 kPointSpan = 64;

u64 checked_header(const std::string& first_digits, u32 radix) {
  if (radix != 10 && radix != 16) throw InvalidParametersException("BasicTextWriter()", "Invalid radix.");
  const auto point = first_digits.find('.');
  if (point == std::string::npos)
    throw InvalidParametersException("BasicTextWriter()", "No decimal place was found.");
  return point + 1;
}

// A byte that is no digit, for people: "g", or its number where it has no face.
std::string byte_text(char c) {
  if (c > ' ' && c < 127) return std::string("\"") + c + "\"";
  return "A byte of " + std::to_string(static_cast<unsigned char>(c));
}

// Bytes of the line ends that close a file; at most a page of them.
u64 line_end_bytes(const RawFile& file, u64 size) {
  if (size == 0) return 0;
  alignas(kIoAlignment) char page[kIoAlignment];
  const u64 got = file.load_up_to(page, (size - 1) / kIoAlignment * kIoAlignment, kIoAlignment);
  u64 end = got;
  while (end > 0 && (page[end - 1] == '\n' || page[end - 1] == '\r')) end--;
  return got - end;
}

}  // namespace

BasicTextWriter::BasicTextWriter(const std::string& path, const std::string& first_digits, u32 radix,
                                 u64 total_digits)
    : radix_(radix),
      header_bytes_(checked_header(first_digits, radix)),
      total_digits_(total_digits),
      file_(path, header_bytes_ + total_digits) {
  file_.update(0, header_bytes_, [&](u8* data) { std::memcpy(data, first_digits.data(), header_bytes_); });
}

void BasicTextWriter::store_digits(const u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                                   ParallelContext parallel) {
  constexpr const char* kFunction = "BasicTextWriter::store_digits()";
  if (offset > total_digits_ || count > total_digits_ - offset)
    throw InvalidParametersException(kFunction, "Out of range.");
  if (count == 0) return;
  const PageSpan span = cut_pages(buffer, header_bytes_ + offset, count, kFunction);
  for_blocks(count, kBlockDigits, parallel, [&](u64 begin, u64 end) {
    digits_to_text(reinterpret_cast<char*>(span.data) + begin, digits + begin, end - begin);
  });
  file_.store(span, header_bytes_ + offset, count);
}

void BasicTextWriter::seal() { file_.seal(header_bytes_ + total_digits_); }
void BasicTextWriter::publish(Pieces) { file_.publish(); }

BasicTextReader::BasicTextReader(const std::string& path, u32 radix)
    : file_(path, RawFile::Mode::kRead), radix_(radix) {
  constexpr const char* kFunction = "BasicTextReader()";
  alignas(kIoAlignment) char page[kIoAlignment];
  const u64 size = file_.size();
  const u64 text_end = size - line_end_bytes(file_, size);
  const u64 got = std::min(file_.load_up_to(page, 0, kIoAlignment), text_end);
  const std::string_view start(page, std::min(got, kPointSpan));
  const auto point = start.find('.');
  if (point == std::string_view::npos)
    throw ParseException(kFunction, "A decimal place was not found within the first 63 bytes of the file.");
  if (radix_ == 0) {
    radix_ = 10;
    for (u64 i = 0; i < got; i++) {
      if (i == point || (page[i] >= '0' && page[i] <= '9')) continue;
      if (page[i] < 'a' || page[i] > 'f') {
        if (i < kPointSpan)
          throw ParseException(kFunction, "Invalid Digit\n\n" + byte_text(page[i]) + " is byte " +
                                              std::to_string(i + 1) + " of the file.\nPath: " + path);
        break;
      }
      radix_ = 16;
      break;
    }
  }
  first_digits_ = start.substr(0, point + 1);
  total_digits_ = text_end - first_digits_.size();
  // 0 would say that the stream has no known end.
  if (total_digits_ == 0)
    throw ParseException(kFunction, "There are no digits after the decimal place in this file.");
}

void BasicTextReader::process_txt(u8* digits, const char* text, u64 offset, u64 count,
                                  ParallelContext parallel) {
  std::atomic<bool> bad{false};
  for_blocks(count, kBlockDigits, parallel, [&](u64 begin, u64 end) {
    if (text_to_digits(digits + begin, text + begin, end - begin, radix_)) bad = true;
  });
  if (!bad) return;
  u64 at = 0;
  while (!text_to_digits(digits, text + at, 1, radix_)) at++;
  throw_invalid_digit("BasicTextReader::process_txt()",
                      byte_text(text[at]) + " stands at digit " + format_with_commas(offset + at + 1) +
                          " after the point, byte " +
                          format_with_commas(first_digits_.size() + offset + at + 1) + " of the file.",
                      file_.path());
}

void BasicTextReader::check_range(u64 offset, u64 count) {
  if (offset > total_digits_ || count > total_digits_ - offset)
    throw InvalidParametersException("BasicTextReader::load_digits()", "Out of range.");
}

void BasicTextReader::load_digits(u8* digits, u64 offset, u64 count, LinearHeapBuffer buffer,
                                  ParallelContext parallel) {
  constexpr const char* kFunction = "BasicTextReader::load_digits()";
  check_range(offset, count);
  if (count == 0) return;
  const u64 begin = first_digits_.size() + offset;
  const PageSpan span = cut_pages(buffer, begin, count, kFunction);
  {
    const std::lock_guard lock(mutex_);
    const u64 got = file_.load_up_to(span.pages, span.file_offset, span.length);
    if (span.file_offset + got < begin + count)
      throw_short_file(kFunction, span.file_offset + got, begin + count, file_.path());
  }
  process_txt(digits, reinterpret_cast<const char*>(span.data), offset, count, parallel);
}

void BasicTextReader::check_as_written(const std::string& first_digits, u64, u64 total_digits) {
  const auto require = [&](bool same, const char* text) {
    if (!same) throw InconsistentMetaData("BasicTextReader::check_as_written()", file_.path(), text);
  };
  require(first_digits_ == first_digits, "First digits do not match.");
  require(total_digits_ == total_digits && file_.size() == first_digits.size() + total_digits,
          "File size does not match.");
}

}  // namespace orl
