// Occurrences of each digit value. Included once per instruction set; no include guard.
namespace orl::digits::SIMD_ISA {
namespace {

// One byte lane per position of a block of 64; a comparison is all ones where it holds, so subtracting counts
// it.
typedef u8 Bytes __attribute__((vector_size(64)));

void count_digits(const u8* digits, u64 length, u32 radix, u64* counts) {
  const u64 blocks = length / 64;
  for (u64 begin = 0; begin < blocks; begin += 255) {  // a lane of u8 holds 255
    const u64 end = begin + 255 < blocks ? begin + 255 : blocks;
    for (u32 value = 0; value < radix; value++) {
      Bytes sum = {};
      for (u64 i = begin; i < end; i++) {
        Bytes block;
        __builtin_memcpy(&block, digits + 64 * i, 64);
        sum -= (block == static_cast<u8>(value));
      }
      u64 total = 0;
      for (int lane = 0; lane < 64; lane++) total += sum[lane];
      counts[value] += total;
    }
  }
  for (u64 i = 64 * blocks; i < length; i++)
    if (digits[i] < radix) counts[digits[i]]++;
}

}  // namespace

extern const DigitCountKernel digit_count;
constinit const DigitCountKernel digit_count{SIMD_ISA_NAME, &count_digits};

}  // namespace orl::digits::SIMD_ISA
