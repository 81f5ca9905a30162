#include "viewer/digit_passes.h"

#include <algorithm>

#include "core/exceptions.h"
#include "digits/digit_text.h"
#include "words/hash.h"

namespace orvane {
namespace {

using orl::InvalidParametersException;
using orl::LinearHeapBuffer;
using orl::u8;

// Blocks are whole pages of digits and whole words of both radixes.
constexpr u64 kBlockUnit = 4096 * 19;
constexpr u64 kMaxBlock = 54 * kBlockUnit;  // 4 MiB of digits; longer transfers gain nothing

// Two blocks of digits and a window for each of their transfers.
u64 copy_bytes(const orl::DigitReader& reader, const orl::DigitWriter& writer, u64 block) {
  return 2 * LinearHeapBuffer::cut_bytes<u8>(block) +
         LinearHeapBuffer::cut_bytes<u8>(reader.buffer_bytes(block)) +
         LinearHeapBuffer::cut_bytes<u8>(writer.buffer_bytes(block));
}

u64 block_for_copy(const orl::DigitReader& reader, const orl::DigitWriter& writer, u64 window_bytes) {
  u64 block = kMaxBlock;
  while (block > kBlockUnit && copy_bytes(reader, writer, block) > window_bytes) block -= kBlockUnit;
  return block;
}

}  // namespace

void copy_digits(orl::DigitReader& reader, DigitRange range, orl::DigitWriter& writer, u64 target,
                 const PassContext& context) {
  reader.check_range(range.begin, range.count());
  const u64 block = block_for_copy(reader, writer, context.buffer.size);
  LinearHeapBuffer buffer = context.buffer;
  u8* digits = buffer.cut<u8>(block);
  u8* next = buffer.cut<u8>(block);
  const LinearHeapBuffer read_window = buffer.cut_buffer(reader.buffer_bytes(block));
  const LinearHeapBuffer write_window = buffer.cut_buffer(writer.buffer_bytes(block));

  const auto length_at = [&](u64 done) { return std::min(block, range.count() - done); };
  const auto load = [&](u64 done, orl::ParallelContext parallel) {
    if (done < range.count())
      reader.load_digits(next, range.begin + done, length_at(done), read_window, parallel);
  };
  load(0, context.parallel);
  for (u64 done = 0; done < range.count(); done += block) {
    std::swap(digits, next);
    const u64 length = length_at(done);
    const auto store = [&](orl::ParallelContext parallel) {
      writer.store_digits(digits, target + done, length, write_window, parallel);
    };
    if (context.parallel.tds > 1) {
      orl::fork_pair_or_throw(
          context.parallel.parallelizer, [&] { store(context.parallel.left()); },
          [&] { load(done + block, context.parallel.right()); });
    } else {
      store(context.parallel);
      load(done + block, context.parallel);
    }
    context.status.show_count("Writing...    ", done + length, "  digits written");
  }
}

DigitRange SetTarget::range(u64 first, u64 last) const {
  const u64 file_digits = digits_per_file == orl::kSingleFile ? total_digits : digits_per_file;
  const bool to_end = total_digits != 0 && last == (total_digits - 1) / file_digits;
  return {first * file_digits, to_end ? total_digits : (last + 1) * file_digits};
}

orl::BasicOvdSetWriter make_set_writer(const orl::DigitReader& reader, const SetTarget& target) {
  return {target.path,        target.name, reader.first_digits(), reader.radix(), target.digits_per_file,
          target.total_digits};
}

void copy_to_set(orl::DigitReader& reader, const SetTarget& target, const PassContext& context,
                 const std::function<void(u64 first, u64 last)>& named) {
  for (u64 first = target.first_id; first <= target.last_id; first += kFilesAtOnce) {
    const u64 last = std::min(first + kFilesAtOnce - 1, target.last_id);
    const DigitRange range = target.range(first, last);
    orl::BasicOvdSetWriter writer = make_set_writer(reader, target);
    copy_digits(reader, range, writer, range.begin, context);
    writer.close_and_get_basic_reader();
    named(first, last);
  }
}

u64 top_hash(const std::string& first_digits, u32 radix) {
  const auto point = first_digits.find('.');
  if (point == std::string::npos)
    throw InvalidParametersException("compute_stats()", "No decimal place found.");
  u64 hash = 0;
  for (const char c : first_digits.substr(0, point)) {
    const u32 digit = orl::digit_value(c);
    if (digit >= radix) throw InvalidParametersException("top_hash()", "Invalid Digit");
    hash = orl::hash_mul_add(hash, radix, digit);
  }
  return orl::hash_canon(hash);
}

}  // namespace orvane
