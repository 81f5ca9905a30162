// Word loops of one instruction set; reads V = simd::SIMD_ISA::U64. Included per instruction set, no guard.
namespace orl::SIMD_ISA {
namespace {

using V = simd::SIMD_ISA::U64;

const char* at(const void* p, u64 i) { return static_cast<const char*>(p) + i * 8; }
char* at(void* p, u64 i) { return static_cast<char*>(p) + i * 8; }

// Sums of whole vectors; the carries of all lanes come from one addition of masks (P. Kogge, H. Stone, 1973;
// the prefix by an integer add): a lane of all ones passes a carry on, a lane that wrapped makes one. The
// mask sum P + 2 G + c then differs from P exactly in the lanes that receive a carry.
u64 vector_add(void* T, const void* A, const void* B, u64 L, u64 carry) {
  const V ones = V::all(~u64{0});
  V::Mask c = static_cast<V::Mask>(carry);
  u64 i = 0;
  const auto step = [&] {
    const V a = V::load(at(A, i));
    const V s = a + V::load(at(B, i));
    const V::Mask pass = V::equal(s, ones);
    const V::Mask sum = pass + 2 * V::less(s, a) + c;
    V::sub_where(pass ^ sum, s, ones).store(at(T, i));
    c = sum >> V::lanes;
    i += V::lanes;
  };
  while (i + 2 * V::lanes <= L) {
    step();
    step();
  }
  if (i + V::lanes <= L) step();
  return word_loops::add<u64>(at(T, i), at(A, i), at(B, i), L - i, c);
}

// As vector_add: a lane of zero passes a borrow on, a lane that wrapped makes one.
u64 vector_sub(void* T, const void* A, const void* B, u64 L, u64 borrow) {
  const V zero = V::all(0);
  const V one = V::all(1);
  V::Mask c = static_cast<V::Mask>(borrow);
  u64 i = 0;
  const auto step = [&] {
    const V a = V::load(at(A, i));
    const V b = V::load(at(B, i));
    const V d = a - b;
    const V::Mask pass = V::equal(d, zero);
    const V::Mask sum = pass + 2 * V::less(a, b) + c;
    V::sub_where(pass ^ sum, d, one).store(at(T, i));
    c = sum >> V::lanes;
    i += V::lanes;
  };
  while (i + 2 * V::lanes <= L) {
    step();
    step();
  }
  if (i + V::lanes <= L) step();
  return word_loops::sub<u64>(at(T, i), at(A, i), at(B, i), L - i, c);
}

// Eight words a turn on the carry flag alone: DEC and LEA leave it, so it lives from turn to turn. The words
// that do not fill a turn come first. T, A, B, carry and turns are the caller's.
// clang-format off
#define ORL_CHAIN_WORD(op, offset) \
  "movq " #offset "(%[a]), %[x]\n\t" \
  #op " " #offset "(%[b]), %[x]\n\t" \
  "movq %[x], " #offset "(%[t])\n\t"
#define ORL_CHAIN(op)                                                                         \
  asm volatile("negq %[c]\n\t"                                                                \
               ".p2align 5\n"                                                                 \
               "1:\n\t"                                                                       \
               ORL_CHAIN_WORD(op, 0) ORL_CHAIN_WORD(op, 8) ORL_CHAIN_WORD(op, 16)             \
               ORL_CHAIN_WORD(op, 24) ORL_CHAIN_WORD(op, 32) ORL_CHAIN_WORD(op, 40)           \
               ORL_CHAIN_WORD(op, 48) ORL_CHAIN_WORD(op, 56)                                  \
               "leaq 64(%[a]), %[a]\n\t"                                                      \
               "leaq 64(%[b]), %[b]\n\t"                                                      \
               "leaq 64(%[t]), %[t]\n\t"                                                      \
               "decq %[n]\n\t"                                                                \
               "jnz 1b\n\t"                                                                   \
               "sbbq %[c], %[c]\n\t"                                                          \
               "negq %[c]"                                                                    \
               : [c] "+r"(carry), [a] "+r"(a), [b] "+r"(b), [t] "+r"(t), [n] "+r"(turns), [x] "=&r"(x) \
               :                                                                              \
               : "memory", "cc")
// clang-format on

u64 flag_add(void* T, const void* A, const void* B, u64 L, u64 carry) {
  const u64 head = L % 8;
  carry = word_loops::add<u64>(T, A, B, head, carry);
  u64 turns = L / 8;
  if (turns == 0) return carry;
  const char *a = at(A, head), *b = at(B, head);
  char* t = at(T, head);
  u64 x;
  ORL_CHAIN(adcq);
  return carry;
}

u64 flag_sub(void* T, const void* A, const void* B, u64 L, u64 carry) {
  const u64 head = L % 8;
  carry = word_loops::sub<u64>(T, A, B, head, carry);
  u64 turns = L / 8;
  if (turns == 0) return carry;
  const char *a = at(A, head), *b = at(B, head);
  char* t = at(T, head);
  u64 x;
  ORL_CHAIN(sbbq);
  return carry;
}
#undef ORL_CHAIN
#undef ORL_CHAIN_WORD

// MULX leaves the flags alone, so one ADC a word carries from product to product and from turn to turn.
u64 flag_mul(void* T, const void* A, u64 L, u64 w, u64 carry) {
  const u64 head = L % 8;
  carry = word_loops::mul<u64>(T, A, head, w, carry);
  u64 turns = L / 8;
  if (turns == 0) return carry;
  const char* a = at(A, head);
  char* t = at(T, head);
  u64 low, high;
  // clang-format off
#define ORL_WORD(offset, from, to) \
  "mulxq " #offset "(%[a]), %[low], %[" #to "]\n\t" \
  "adcq %[" #from "], %[low]\n\t" \
  "movq %[low], " #offset "(%[t])\n\t"
  asm volatile("xorl %k[low], %k[low]\n\t"
               ".p2align 5\n"
               "1:\n\t"
               ORL_WORD(0, carry, high) ORL_WORD(8, high, carry) ORL_WORD(16, carry, high)
               ORL_WORD(24, high, carry) ORL_WORD(32, carry, high) ORL_WORD(40, high, carry)
               ORL_WORD(48, carry, high) ORL_WORD(56, high, carry)
               "leaq 64(%[a]), %[a]\n\t"
               "leaq 64(%[t]), %[t]\n\t"
               "decq %[n]\n\t"
               "jnz 1b\n\t"
               "adcq $0, %[carry]"
               : [carry] "+r"(carry), [a] "+r"(a), [t] "+r"(t), [n] "+r"(turns), [low] "=&r"(low),
                 [high] "=&r"(high)
               : "d"(w)
               : "memory", "cc");
#undef ORL_WORD
  // clang-format on
  return carry;
}

// lane * 2^shift modulo 2^61 - 1 for lanes below 2^63; the result is below 2^61 + 2^(shift + 2).
template <unsigned shift>
V times_power(V lane) {
  const V mask = V::all(kHashModulus);
  return (lane.shl(shift) & mask) + lane.shr(61 - shift);
}

// x is split at bit 61: below 2^61 + 8.
V fold(V x) { return (x & V::all(kHashModulus)) + x.shr(61); }

// Horner in every lane, downward, by the 2^61 - 1 residue of W^lanes (W is 8); four vectors in a row have a
// state each, which hides the latency of the step. Lanes stay below 2^62 + 2^51 < 2^63.
u64 hash(u64 seed, const void* A, u64 L) {
  constexpr unsigned kStep = 3 * V::lanes % 61;
  constexpr unsigned kTurn = 3 * V::lanes * 4 % 61;
  constexpr u64 lanes = V::lanes;
  const u64 odd = L % lanes;
  L -= odd;
  V s0 = fold(V::low(word_loops::hash<u64>(seed, at(A, L), odd)));
  for (; L % (4 * lanes); L -= lanes) s0 = times_power<kStep>(s0) + fold(V::load(at(A, L - lanes)));
  V s1 = V::all(0), s2 = s1, s3 = s1;
  for (; L > 0; L -= 4 * lanes) {
    s0 = times_power<kTurn>(s0) + fold(V::load(at(A, L - 4 * lanes)));
    s1 = times_power<kTurn>(s1) + fold(V::load(at(A, L - 3 * lanes)));
    s2 = times_power<kTurn>(s2) + fold(V::load(at(A, L - 2 * lanes)));
    s3 = times_power<kTurn>(s3) + fold(V::load(at(A, L - 1 * lanes)));
  }
  s2 = s2 + times_power<kStep>(fold(s3));
  s1 = s1 + times_power<kStep>(fold(s2));
  s0 = fold(s0 + times_power<kStep>(fold(s1)));
  // Lane j stands for 2^(3 j).
  const V by = V::ramp(3);
  s0 = (s0.shl(by) & V::all(kHashModulus)) + s0.shr(V::all(61) - by);
  u64 words[lanes];
  s0.store(words);
  u128 sum = 0;
  for (u64 word : words) sum += word;
  return hash_fold_128(sum);
}

}  // namespace

constinit const WordKernels word_kernel_table{SIMD_ISA_NAME, V::lanes >= 8 ? &vector_add : &flag_add,
                                              V::lanes >= 8 ? &vector_sub : &flag_sub, &flag_mul, &hash};

}  // namespace orl::SIMD_ISA
