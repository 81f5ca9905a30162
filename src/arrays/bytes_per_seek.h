// "Bytes/Seek": how many bytes an array moves in the time of a seek; algorithms transfer no smaller pieces.
#pragma once

#include "arrays/raid_descriptor.h"
#include "core/types.h"

namespace orl {

/// A setting with a default that follows the array.
class BytesPerSeek {
 public:
  /// Throws InvalidParametersException "MinIO is too small." below 4096 and "MinIO is too large." from 2^63.
  void set(u64 bytes);
  /// Back to the default: 1 MiB for each drive that holds data.
  void reset() { bytes_ = 0; }
  bool is_default() const { return bytes_ == 0; }
  /// As a configuration holds it; 0 is the default.
  u64 setting() const { return bytes_; }
  /// The bytes, for this array.
  u64 value(const R03::Raid03Descriptor& raid) const;

 private:
  u64 bytes_ = 0;
};

}  // namespace orl
