// Loops over raw digits and their characters. Included once per instruction set; no include guard.
namespace orl::digits::SIMD_ISA {
namespace {

constexpr u64 kLanes = sizeof(simd::SIMD_ISA::U64);
typedef u8 Bytes __attribute__((vector_size(kLanes)));
typedef u16 Pairs __attribute__((vector_size(kLanes)));
typedef u32 Fours __attribute__((vector_size(kLanes)));
typedef u64 Eights __attribute__((vector_size(kLanes)));

Bytes load_bytes(const void* from) {
  Bytes bytes;
  __builtin_memcpy(&bytes, from, kLanes);
  return bytes;
}

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
      // A comparison is all ones where it holds, so subtracting counts it.
      for (u64 i = begin; i < end; i++) sum -= (load_bytes(digits + kLanes * i) == wanted);
      counts[value] += sum_of_lanes(sum);
    }
  }
  for (u64 i = kLanes * blocks; i < length; i++)
    if (digits[i] < radix) counts[digits[i]]++;
}

struct RadixPowers {
  explicit RadixPowers(u32 radix) : one(radix), two(radix * radix), eight(u64{two} * two * two * two) {
    for (u64 lane = 0; lane < kLanes / 4; lane++) four[lane] = lane % 2 ? 1 : two * two;
  }
  u32 one, two;
  Fours four;  ///< for the first of each two lanes
  u64 eight;
};

// Lanes of eight digits as numbers: neighbours are joined three times, the first one being the greater.
Eights join(Bytes bytes, const RadixPowers& powers) {
  const Pairs digits = (Pairs)bytes;
  const Pairs pairs = (digits & 0xff) * static_cast<u16>(powers.one) + (digits >> 8);
  Fours fours = (Fours)pairs;
  fours = ((fours & 0xffff) * powers.two + (fours >> 16)) * powers.four;
  const Eights halves = (Eights)fours;
  return (halves & 0xffffffff) + (halves >> 32);
}

// hash * radix^64 + the next 64 digits.
u64 hash_64(u64 hash, const u8* digits, const RadixPowers& powers, u64 sixteen) {
  u64 eights[8];
  for (u64 at = 0; at < 64; at += kLanes) {
    const Eights joined = join(load_bytes(digits + at), powers);
    __builtin_memcpy(eights + at / 8, &joined, kLanes);
  }
  for (int i = 0; i < 8; i += 2) hash = hash_mul_add(hash, sixteen, eights[i] * powers.eight + eights[i + 1]);
  return hash;
}

// Four stretches side by side, since each step of a stretch waits for the one before.
u64 hash_blocks(const u8* digits, u64 blocks, u32 radix) {
  constexpr u64 kStretches = 4;
  static_assert(DigitKernels::kHashBlock == 64 * kStretches);
  const RadixPowers powers(radix);
  const u64 sixteen = hash_pow(radix, 16), length = 64 * blocks;
  u64 hashes[kStretches] = {};
  for (u64 at = 0; at < length; at += 64)
    for (u64 s = 0; s < kStretches; s++)
      hashes[s] = hash_64(hashes[s], digits + s * length + at, powers, sixteen);
  const u64 shift = hash_pow(radix, length);
  u64 hash = hashes[0];
  for (u64 s = 1; s < kStretches; s++) hash = hash_add(hash_mul(hash, shift), hashes[s]);
  return hash;
}

constexpr u8 kLetters = 'a' - '9' - 1;  // between the characters of nine and ten

void to_text(char* text, const u8* digits, u64 length) {
  u64 i = 0;
  for (; i + kLanes <= length; i += kLanes) {
    const Bytes block = load_bytes(digits + i);
    const Bytes characters = block + '0' + ((Bytes)(block > 9) & kLetters);
    __builtin_memcpy(text + i, &characters, kLanes);
  }
  for (; i < length; i++) text[i] = digit_character(digits[i]);
}

bool from_text(u8* digits, const char* text, u64 length, u32 radix) {
  Bytes bad_lanes = {};
  u64 i = 0;
  for (; i + kLanes <= length; i += kLanes) {
    const Bytes block = load_bytes(text + i);
    const Bytes letters = (Bytes)(block > '9');
    const Bytes values = block - '0' - (letters & kLetters);
    __builtin_memcpy(digits + i, &values, kLanes);
    // Characters between '9' and 'a' get values below ten or wrap to large ones.
    bad_lanes |= (Bytes)(values >= static_cast<u8>(radix)) | (letters & (Bytes)(values < 10));
  }
  bool bad = sum_of_lanes(bad_lanes & 1) != 0;
  for (; i < length; i++) {
    digits[i] = digit_value(text[i]);
    bad |= digits[i] >= radix;
  }
  return bad;
}

}  // namespace

extern const DigitKernels kernels;
constinit const DigitKernels kernels{SIMD_ISA_NAME, &count_digits, &hash_blocks, &to_text, &from_text};

}  // namespace orl::digits::SIMD_ISA
