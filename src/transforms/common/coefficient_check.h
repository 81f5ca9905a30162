// How a product ends whose coefficients cannot be right.
#pragma once

#include <string>

#include "core/types.h"

namespace orl {

/// "Coefficient is too large.", after "The FPU Control Word has been corrupted." and a new line when this
/// thread does not round to nearest: then that is the cause, or another that spoiled it lately.
std::string coefficient_text();

/// Throws ConvolutionFailedException under `id` with that text, the bits that coefficients may have and the
/// bits of the largest.
[[noreturn]] void coefficient_failed(const char* id, u64 limit_bits, u64 found_bits);

}  // namespace orl
