#include "digits/hashed_digits.h"

// SHA-256 comes from OpenSSL: a published function outside of what this program exists for.
#include <openssl/evp.h>

#include <algorithm>

#include "digits/digit_text.h"
#include "frame/exceptions.h"

namespace orl {

struct DigitHasher::State {
  struct Free {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
  };
  std::unique_ptr<EVP_MD_CTX, Free> context{EVP_MD_CTX_new()};
};

namespace {

void check(bool ok) {
  if (!ok) throw AlgorithmFailedException("DigitHasher", "The library's SHA-256 failed.");
}

}  // namespace

DigitHasher::DigitHasher(u64 first_index) : state_(std::make_unique<State>()), first_index_(first_index) {
  check(state_->context && EVP_DigestInit_ex(state_->context.get(), EVP_sha256(), nullptr) == 1);
}
DigitHasher::DigitHasher(DigitHasher&&) noexcept = default;
DigitHasher::~DigitHasher() = default;

void DigitHasher::append(const u8* digits, u64 length) {
  constexpr u64 kPiece = 16384;  // stays in the first-level cache between the two passes
  char text[kPiece];
  for (u64 done = 0; done < length;) {
    const u64 piece = std::min(kPiece, length - done);
    digits_to_text(text, digits + done, piece);
    check(EVP_DigestUpdate(state_->context.get(), text, piece) == 1);
    done += piece;
  }
  count_ += length;
}

HashedDigits DigitHasher::finish() {
  unsigned char hash[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  check(EVP_DigestFinal_ex(state_->context.get(), hash, &size) == 1);
  std::string text;
  for (unsigned int i = 0; i < size; i++) {
    text.push_back(digit_character(hash[i] >> 4));
    text.push_back(digit_character(hash[i] & 15));
  }
  return HashedDigits(first_index_, count_, std::move(text));
}

HashedDigits::HashedDigits(DigitReader& reader, u64 first_index, u64 count, LinearHeapBuffer buffer,
                           ParallelContext parallel)
    : first_index_(first_index), count_(count) {
  if (reader.radix() != 10 && reader.radix() != 16)
    throw InvalidParametersException("HashedDigits()", "Invalid Radix.");
  constexpr u64 kMaxPiece = 0x40000000;
  const u64 piece = std::min(kMaxPiece, block_for_window(reader, buffer.size));
  if (piece == 0) throw BufferTooSmallException("HashedDigits()", buffer.size, 64 + reader.buffer_bytes(64));
  u8* const digits = buffer.spawn_words<u8>(piece);
  DigitHasher hasher(first_index);
  for (u64 done = 0; done < count;) {
    const u64 length = std::min(piece, count - done);
    reader.load_digits(digits, first_index + done, length, buffer, parallel);
    hasher.append(digits, length);
    done += length;
  }
  sha256_ = hasher.finish().sha256();
}

}  // namespace orl
