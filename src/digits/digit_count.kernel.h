// Occurrences of each digit value. Included once per instruction set; no include guard.
namespace orl::digits::SIMD_ISA {
namespace {

// One byte lane per position of a block; a comparison is all ones where it holds, so subtracting counts it.
constexpr u64 kLanes = sizeof(simd::SIMD_ISA::U64);
typedef u8 Bytes __attribute__((vector_size(kLanes)));

u64 sum_of_lanes(Bytes bytes) {
  u64 total = 0;
  for (u64 lane = 0; lane < kLanes; lane++) total += bytes[lane];
  return total;
}

void count_digits(const u8* digits, u64 length, u32 radix, u64* counts) {
  const u64 blocks = length / kLanes;
  for (u64 begin = 0; begin < blocks; begin += 255) {  // a lane of u8 holds 255
    const u64 end = begin + 255 < blocks ? begin + 255 : blocks;
    for (u32 value = 0; value < radix; value++) {
      const Bytes wanted = Bytes{} + static_cast<u8>(value);
      Bytes sum = {};
      for (u64 i = begin; i < end; i++) {
        Bytes block;
        __builtin_memcpy(&block, digits + kLanes * i, kLanes);
        sum -= (block == wanted);
      }
      counts[value] += sum_of_lanes(sum);
    }
  }
  for (u64 i = kLanes * blocks; i < length; i++)
    if (digits[i] < radix) counts[digits[i]]++;
}

}  // namespace

extern const DigitCountKernel digit_count;
constinit const DigitCountKernel digit_count{SIMD_ISA_NAME, &count_digits};

}  // namespace orl::digits::SIMD_ISA
