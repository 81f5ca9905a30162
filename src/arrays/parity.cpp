#include "arrays/parity.h"

#include <cstring>

namespace orl::R03 {
namespace {

constexpr u64 kLineWords = 8;

struct Line {
  u64 words[kLineWords];
};

Line completed(std::span<const u8* const> pieces, u64 at) {
  Line sum;
  std::memset(&sum, 0xFF, sizeof sum);
  for (const u8* piece : pieces) {
    Line line;
    std::memcpy(&line, piece + at, sizeof line);
    for (u64 i = 0; i < kLineWords; i++) sum.words[i] ^= line.words[i];
  }
  return sum;
}

}  // namespace

void complete_parity(u8* out, std::span<const u8* const> others, u64 bytes) {
  for (u64 at = 0; at < bytes; at += sizeof(Line)) {
    const Line line = completed(others, at);
    std::memcpy(out + at, &line, sizeof line);
  }
}

bool parity_holds(std::span<const u8* const> pieces, u64 bytes) {
  u64 wrong = 0;
  for (u64 at = 0; at < bytes; at += sizeof(Line)) {
    // The complement of the XOR of all files is zero where the parity is right.
    const Line line = completed(pieces, at);
    for (u64 i = 0; i < kLineWords; i++) wrong |= line.words[i];
  }
  return wrong == 0;
}

}  // namespace orl::R03
