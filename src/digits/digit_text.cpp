#include "digits/digit_text.h"

#include "digits/digit_kernels.h"

namespace orl {

void digits_to_text(char* text, const u8* digits, u64 length) {
  digits::digit_kernels().to_text(text, digits, length);
}

bool text_to_digits(u8* digits, const char* text, u64 length, u32 radix) {
  return digits::digit_kernels().from_text(digits, text, length, radix);
}

}  // namespace orl
