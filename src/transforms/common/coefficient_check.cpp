#include "transforms/common/coefficient_check.h"

#include <cfenv>

#include "core/exceptions.h"

namespace orl {

std::string coefficient_text() {
  const std::string text = "Coefficient is too large.";
  return std::fegetround() == FE_TONEAREST ? text : "The FPU Control Word has been corrupted.\n" + text;
}

void coefficient_failed(const char* id, u64 limit_bits, u64 found_bits) {
  throw ConvolutionFailedException(id, coefficient_text(), limit_bits, found_bits);
}

}  // namespace orl
