#include "digits/ovd_header.h"

#include <algorithm>
#include <charconv>

#include "core/exceptions.h"
#include "digits/digit_words.h"
#include "files/buffered_reader.h"

namespace orl {
namespace {

constexpr const char* kFunction = "BasicOvdFileReader()";
constexpr u64 kMinBlockSize = 100;
constexpr u64 kMaxHeaderBytes = 65536;  // of some 200: other files are not read to their end

[[noreturn]] void fail(const std::string& text) { throw ParseException(kFunction, text); }

// Digits and nothing else, in a U.
template <class U>
U whole_number(const std::string& text) {
  U value{};
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) fail("Invalid Number: " + text);
  return value;
}

// A line without its end; carriage returns anywhere are dropped.
std::string read_line(BufferedReader& in) {
  std::string line;
  for (;;) {
    const char c = static_cast<char>(in.read_byte());
    if (in.position() > kMaxHeaderBytes) fail("This is no compressed digit file: no header was found.");
    if (c == '\n') return line;
    if (c != '\r') line.push_back(c);
  }
}

void check(const OvdHeader& header) {
  if (header.block_size < kMinBlockSize) fail("Invalid Digits per File");
  if (header.total_digits != 0 &&
      (header.block_id > header.total_digits / header.block_size || header.begin() >= header.total_digits))
    fail("This file is out of range.\nStart:        " + std::to_string(header.begin()) +
         "\nEnd:          " + std::to_string(header.begin() + header.block_size) +
         "\nTotal Digits: " + std::to_string(header.total_digits));
  u64 end = 0;
  if (__builtin_mul_overflow(header.block_id, header.block_size, &end) ||
      __builtin_add_overflow(end, header.block_size, &end))
    fail("This file is out of range: it would end beyond 2^64 - 1 digits.");
  if (header.radix != 10 && header.radix != 16) fail("Unsupported Radix");
}

}  // namespace

u64 OvdHeader::end() const {
  const u64 end = begin() + block_size;
  return total_digits == 0 ? end : std::min(end, total_digits);
}

u64 words_for(u32 radix, u64 digits) {
  const u64 width = digits_per_word(radix);
  return (digits + width - 1) / width;
}

std::string format_header(const OvdHeader& header) {
  std::string text = "#Compressed Digit File\r\n\r\n";
  const auto line = [&](const char* key, const std::string& value, const char* end = "\r\n\r\n") {
    text += std::string(key) + "\t" + value + end;
  };
  line("FileVersion:", header.version);
  line("Base:", std::to_string(header.radix));
  line("FirstDigits:", header.first_digits);
  line("TotalDigits:", std::to_string(header.total_digits));
  line("Blocksize:", std::to_string(header.block_size), "\r\n");
  line("BlockID:", std::to_string(header.block_id));
  text += "EndHeader\r\n\r\n";
  text.push_back('\0');
  return text;
}

OvdHeader parse_header(const RawFile& file) {
  alignas(kIoAlignment) u8 page[kIoAlignment];
  BufferedReader in(file, RawIoBuffer(page, sizeof page));
  OvdHeader header;
  header.version.clear();
  read_line(in);
  for (;;) {
    const std::string line = read_line(in);
    const auto tab = line.find('\t');
    const std::string key = line.substr(0, tab);
    const std::string value = tab == std::string::npos ? std::string() : line.substr(tab + 1);
    if (key == "EndHeader") break;
    if (key == "FileVersion:") {
      if (value.empty()) fail("No version # found.");
      if (value != "1.0.0" && value != "1.1.0")
        fail(
            "This .ovd file is of a later format version.\n"
            "This version of the digit viewer is unable to view this file.");
      header.version = value;
    } else if (key == "Base:") {
      header.radix = whole_number<u32>(value);
    } else if (key == "FirstDigits:") {
      header.first_digits = value;
    } else if (key == "TotalDigits:") {
      header.total_digits = whole_number<u64>(value);
    } else if (key == "Blocksize:") {
      header.block_size = whole_number<u64>(value);
    } else if (key == "BlockID:") {
      header.block_id = whole_number<u64>(value);
    }
  }
  if (header.version.empty()) fail("No version # found.");
  while (in.read_byte() != 0) {
  }
  header.data_offset = in.position();
  if (header.block_size >= kMinBlockSize && header.total_digits != 0 &&
      header.block_size > header.total_digits)
    header.block_size = header.total_digits;
  check(header);
  return header;
}

}  // namespace orl
