#include "arrays/bytes_per_seek.h"

#include "core/exceptions.h"

namespace orl {
namespace {

constexpr u64 kMinBytes = 4096;
constexpr u64 kBytesOfDrive = u64{1} << 20;

}  // namespace

void BytesPerSeek::set(u64 bytes) {
  if (bytes < kMinBytes) throw InvalidParametersException("set_bytes_per_seek()", "MinIO is too small.");
  if (bytes >> 63) throw InvalidParametersException("set_bytes_per_seek()", "MinIO is too large.");
  bytes_ = bytes;
}

u64 BytesPerSeek::value(const R03::Raid03Descriptor& raid) const {
  return bytes_ != 0 ? bytes_ : kBytesOfDrive * raid.data_files();
}

}  // namespace orl
