#include "files/buffered_reader.h"

#include "core/exceptions.h"

namespace orl {

void BufferedReader::refill() {
  if (buffer_.length < kIoAlignment || at_end())
    throw EndOfStreamException("BufferedReader()", "Unexpected end of file.");
}

bool BufferedReader::at_end() {
  if (at_ != filled_) return false;
  filled_ = file_.load_up_to(buffer_.ptr, next_offset_, buffer_.length);
  next_offset_ += buffer_.length;
  at_ = 0;
  return filled_ == 0;
}

}  // namespace orl
