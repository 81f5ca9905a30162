// SHA-256, piece by piece.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "core/types.h"

namespace orl {

/// One digest under way.
class Sha256 {
 public:
  Sha256();
  /// May be moved; what is left must not be used.
  Sha256(Sha256&&) noexcept;
  ~Sha256();

  /// Appends bytes.
  void append(const void* bytes, u64 length);
  /// The hash of all that was appended, lower-case hexadecimal. Call once.
  std::string finish();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

/// The digest of a whole text.
std::string sha256(std::string_view text);

}  // namespace orl
