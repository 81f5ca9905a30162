// Schoolbook products on MULX, ADCX and ADOX.
//
// A row is kWidth words of A, held in memory, times one word of B. The sum over rows stays in kWidth
// registers: each row adds low words along the carry flag and high words along the overflow flag, sends the
// lowest register to T as final and makes it the new highest, so that neighbouring rows name the same
// registers in turn. Both carries end in the new highest word, which cannot overflow. One word of T may be
// added to the word that leaves: (W^k - 1) + (W^k - 1)(W - 1) + (W - 1) < W^(k+1) for any width k.
//
// A product is cut into a corner of at most 8 by 8 words, unrolled for each size, and blocks of 8 words of
// one operand times any number of rows, entered in the middle of a loop of 8 rows. A square has triangles in
// place of corners, and its off-diagonal sum is doubled while the squares are added.
//
// Measured   0.38 ns per word product at 3.7 GHz (1.4 cycles; MULX beside two additions alone takes 1.2).
//
// The texts below are macros because an asm statement takes literals only and no flag survives between two of
// them. The compiler chooses the registers; a row of 8 takes 14 of them, all that a build with frame pointers
// has.
#include <algorithm>
#include <utility>

#include "multiply/basecase_kernels.h"
#include "multiply/basecase_rows.h"

namespace orl::avx2 {
namespace {

/// A 64-bit word that may also be two 32-bit ones.
using Word [[gnu::may_alias, gnu::aligned(4)]] = u64;

// Operands: a the words of A, rdx the word of B, t the words of T, j the index of the leaving word, r0 to r7
// the sum from the leaving word up, x and y the two words that a row of a triangle founds, z zero.
#define CLEAR "xor %k[z], %k[z]\n\t"
#define ADD_T "adox 8*%c[j](%[t]), %[r0]\n\t"
#define LEAVE "mov %[r0], 8*%c[j](%[t])\n\t"
#define LOW(i) "mulx 8*" #i "(%[a]), %[lo], %[hi]\n\tadcx %[lo], %[r" #i "]\n\t"
#define HIGH(next) "adox %[hi], %[r" #next "]\n\t"

#define STEPS_1 LOW(0) LEAVE HIGH(1)
#define STEPS_2 STEPS_1 LOW(1) HIGH(2)
#define STEPS_3 STEPS_2 LOW(2) HIGH(3)
#define STEPS_4 STEPS_3 LOW(3) HIGH(4)
#define STEPS_5 STEPS_4 LOW(4) HIGH(5)
#define STEPS_6 STEPS_5 LOW(5) HIGH(6)
#define STEPS_7 STEPS_6 LOW(6) HIGH(7)

// A row over sums: all words but the last, then the last, whose high word is the new highest of the sum.
#define END(i)                                              \
  "mulx 8*" #i "(%[a]), %[lo], %[r0]\n\tadcx %[lo], %[r" #i \
  "]\n\tadcx %[z], %[r0]\n\tadox "                          \
  "%[z], %[r0]"
#define ROW_1 LOW(0) LEAVE "mov %[z], %[r0]\n\tadcx %[hi], %[r0]\n\tadox %[z], %[r0]"
#define ROW_2 STEPS_1 END(1)
#define ROW_3 STEPS_2 END(2)
#define ROW_4 STEPS_3 END(3)
#define ROW_5 STEPS_4 END(4)
#define ROW_6 STEPS_5 END(5)
#define ROW_7 STEPS_6 END(6)
#define ROW_8 STEPS_7 END(7)

// The first row, which founds the sum, has one carry.
#define FOUND(i, next) "mulx 8*" #i "(%[a]), %[lo], %[r" #next "]\n\tadc %[lo], %[r" #i "]\n\t"
#define FOUND_1 "xor %k[lo], %k[lo]\n\tmulx (%[a]), %[lo], %[r1]\n\tmov %[lo], (%[t])\n\t"
#define FOUND_2 FOUND_1 FOUND(1, 2)
#define FOUND_3 FOUND_2 FOUND(2, 3)
#define FOUND_4 FOUND_3 FOUND(3, 4)
#define FOUND_5 FOUND_4 FOUND(4, 5)
#define FOUND_6 FOUND_5 FOUND(5, 6)
#define FOUND_7 FOUND_6 FOUND(6, 7)
#define FIRST_1 "mulx (%[a]), %[lo], %[r0]\n\tmov %[lo], (%[t])"
#define FIRST_2 FOUND_1 FOUND(1, 0) "adc $0, %[r0]"
#define FIRST_3 FOUND_2 FOUND(2, 0) "adc $0, %[r0]"
#define FIRST_4 FOUND_3 FOUND(3, 0) "adc $0, %[r0]"
#define FIRST_5 FOUND_4 FOUND(4, 0) "adc $0, %[r0]"
#define FIRST_6 FOUND_5 FOUND(5, 0) "adc $0, %[r0]"
#define FIRST_7 FOUND_6 FOUND(6, 0) "adc $0, %[r0]"
#define FIRST_8 FOUND_7 FOUND(7, 0) "adc $0, %[r0]"

// Row n of a triangle: A[0, n) * A[n] over a sum of n - 1 words; it founds two words.
#define APEX(i)                                                         \
  "mulx 8+8*" #i                                                        \
  "(%[a]), %[lo], %[y]\n\tadox %[lo], %[x]\n\tadcx %[z], %[x]\n\tadcx " \
  "%[z], %[y]\n\tadox %[z], %[y]"
#define LAST(i) "mulx 8*" #i "(%[a]), %[lo], %[x]\n\tadcx %[lo], %[r" #i "]\n\t"
#define TRIANGLE_2 LAST(0) LEAVE APEX(0)
#define TRIANGLE_3 STEPS_1 LAST(1) APEX(1)
#define TRIANGLE_4 STEPS_2 LAST(2) APEX(2)
#define TRIANGLE_5 STEPS_3 LAST(3) APEX(3)
#define TRIANGLE_6 STEPS_4 LAST(4) APEX(4)
#define TRIANGLE_7 STEPS_5 LAST(5) APEX(5)

#define PARAMETERS_1 u64& r0
#define PARAMETERS_2 PARAMETERS_1, u64& r1
#define PARAMETERS_3 PARAMETERS_2, u64& r2
#define PARAMETERS_4 PARAMETERS_3, u64& r3
#define PARAMETERS_5 PARAMETERS_4, u64& r4
#define PARAMETERS_6 PARAMETERS_5, u64& r5
#define PARAMETERS_7 PARAMETERS_6, u64& r6
#define PARAMETERS_8 PARAMETERS_7, u64& r7
#define SUM_1 [r0] "+&r"(r0)
#define SUM_2 SUM_1, [r1] "+&r"(r1)
#define SUM_3 SUM_2, [r2] "+&r"(r2)
#define SUM_4 SUM_3, [r3] "+&r"(r3)
#define SUM_5 SUM_4, [r4] "+&r"(r4)
#define SUM_6 SUM_5, [r5] "+&r"(r5)
#define SUM_7 SUM_6, [r6] "+&r"(r6)
#define SUM_8 SUM_7, [r7] "+&r"(r7)
#define NEW_1 [r0] "=&r"(r0)
#define NEW_2 NEW_1, [r1] "=&r"(r1)
#define NEW_3 NEW_2, [r2] "=&r"(r2)
#define NEW_4 NEW_3, [r3] "=&r"(r3)
#define NEW_5 NEW_4, [r4] "=&r"(r4)
#define NEW_6 NEW_5, [r5] "=&r"(r5)
#define NEW_7 NEW_6, [r6] "=&r"(r6)
#define NEW_8 NEW_7, [r7] "=&r"(r7)

/// Work registers of a statement.
struct Temporaries {
  u64 lo, hi, z;
};
#define TEMPORARIES [lo] "=&r"(work.lo), [hi] "=&r"(work.hi), [z] "=&r"(work.z)
#define INPUTS(index) [a] "r"(A), "d"(b), [t] "r"(T), [j] "i"(index)

#define DEFINE_ROW(n)                                                                                    \
  template <int kIndex>                                                                                  \
  [[gnu::always_inline]] inline void row(Word* T, const Word* A, u64 b, PARAMETERS_##n) {                \
    Temporaries work;                                                                                    \
    asm volatile(CLEAR ROW_##n : TEMPORARIES, SUM_##n : INPUTS(kIndex) : "cc", "memory");                \
  }                                                                                                      \
  [[gnu::always_inline]] inline void first_row(Word* T, const Word* A, u64 b, PARAMETERS_##n) {          \
    u64 lo;                                                                                              \
    asm volatile(FIRST_##n : [lo] "=&r"(lo), NEW_##n : [a] "r"(A), "d"(b), [t] "r"(T) : "cc", "memory"); \
  }
DEFINE_ROW(1)
DEFINE_ROW(2)
DEFINE_ROW(3)
DEFINE_ROW(4)
DEFINE_ROW(5)
DEFINE_ROW(6)
DEFINE_ROW(7)
DEFINE_ROW(8)

/// A row of 8 words that takes T[kIndex] into the sum before it leaves.
template <int kIndex>
[[gnu::always_inline]] inline void add_row(Word* T, const Word* A, u64 b, PARAMETERS_8) {
  Temporaries work;
  asm volatile(CLEAR ADD_T ROW_8 : TEMPORARIES, SUM_8 : INPUTS(kIndex) : "cc", "memory");
}

/// Row 1 of a triangle.
template <bool kAdd>
[[gnu::always_inline]] inline void triangle_row(Word* T, const Word* A, u64& x) {
  u64 lo;
  const u64 b = A[1];
  if constexpr (kAdd)
    asm volatile("mulx (%[a]), %[lo], %[x]\n\tadd %[lo], 8(%[t])\n\tadc $0, %[x]"
                 : [lo] "=&r"(lo), [x] "=&r"(x)
                 : [a] "r"(A), "d"(b), [t] "r"(T)
                 : "cc", "memory");
  else
    asm volatile("mulx (%[a]), %[lo], %[x]\n\tmov %[lo], 8(%[t])"
                 : [lo] "=&r"(lo), [x] "=&r"(x)
                 : [a] "r"(A), "d"(b), [t] "r"(T)
                 : "cc", "memory");
}
// Row n over n - 1 words.
#define DEFINE_TRIANGLE_ROW(n, terms)                                                                 \
  template <bool kAdd>                                                                                \
  [[gnu::always_inline]] inline void triangle_row(Word* T, const Word* A, PARAMETERS_##terms, u64& x, \
                                                  u64& y) {                                           \
    Temporaries work;                                                                                 \
    const u64 b = A[n];                                                                               \
    if constexpr (kAdd)                                                                               \
      asm volatile(CLEAR ADD_T TRIANGLE_##n                                                           \
                   : TEMPORARIES, [x] "=&r"(x), [y] "=&r"(y), SUM_##terms                             \
                   : INPUTS(n)                                                                        \
                   : "cc", "memory");                                                                 \
    else                                                                                              \
      asm volatile(CLEAR TRIANGLE_##n                                                                 \
                   : TEMPORARIES, [x] "=&r"(x), [y] "=&r"(y), SUM_##terms                             \
                   : INPUTS(n)                                                                        \
                   : "cc", "memory");                                                                 \
  }
DEFINE_TRIANGLE_ROW(2, 1)
DEFINE_TRIANGLE_ROW(3, 2)
DEFINE_TRIANGLE_ROW(4, 3)
DEFINE_TRIANGLE_ROW(5, 4)
DEFINE_TRIANGLE_ROW(6, 5)
DEFINE_TRIANGLE_ROW(7, 6)

/// T[0] = word, by itself: the compiler would gather neighbours in a vector by way of the stack.
[[gnu::always_inline]] inline void store(Word* T, u64 word) {
  asm volatile("mov %1, %0" : "=m"(*T) : "r"(word));
}
template <class... Words>
[[gnu::always_inline]] inline void store(Word* T, u64 word, Words... words) {
  store(T, word);
  store(T + 1, words...);
}

/// Rows [kIndex, kRows) over the sum of those before, whose words from the lowest are `leaving` and `others`.
template <int kIndex, int kRows, class... Words>
[[gnu::always_inline]] inline void rows(Word* T, const Word* A, const Word* B, u64& leaving,
                                        Words&... others) {
  if constexpr (kIndex == kRows) {
    store(T + kRows, leaving, others...);
  } else {
    row<kIndex>(T, A, B[kIndex], leaving, others...);
    rows<kIndex + 1, kRows>(T, A, B, others..., leaving);
  }
}
template <int kRows, class... Words>
[[gnu::always_inline]] inline void all_rows(Word* T, const Word* A, const Word* B, u64& highest,
                                            Words&... others) {
  first_row(T, A, B[0], highest, others...);
  rows<1, kRows>(T, A, B, others..., highest);
}

/// T[0, kWidth + kRows) = A[0, kWidth) * B[0, kRows).
template <int kWidth, int kRows>
void corner(Word* T, const Word* A, const Word* B) {
  u64 r0, r1, r2, r3, r4, r5, r6, r7;
  if constexpr (kWidth == 1) all_rows<kRows>(T, A, B, r0);
  if constexpr (kWidth == 2) all_rows<kRows>(T, A, B, r0, r1);
  if constexpr (kWidth == 3) all_rows<kRows>(T, A, B, r0, r1, r2);
  if constexpr (kWidth == 4) all_rows<kRows>(T, A, B, r0, r1, r2, r3);
  if constexpr (kWidth == 5) all_rows<kRows>(T, A, B, r0, r1, r2, r3, r4);
  if constexpr (kWidth == 6) all_rows<kRows>(T, A, B, r0, r1, r2, r3, r4, r5);
  if constexpr (kWidth == 7) all_rows<kRows>(T, A, B, r0, r1, r2, r3, r4, r5, r6);
  if constexpr (kWidth == 8) all_rows<kRows>(T, A, B, r0, r1, r2, r3, r4, r5, r6, r7);
}

/// For each of `count` blocks i: T[8i, 8i + rows) += A[8i, 8i + 8) * B[0, rows), whose upper 8 words are
/// stored above. rows >= 1, count >= 1.
void blocks(Word* T, const Word* A, const Word* B, u64 rows, u64 count) {
  const u64 entry = -rows % 8;
  const Word* const end = B + rows;
  B -= entry;
  T -= entry;
  do {
    // All zero, so that the loop may be entered at any turn of the registers.
    u64 r0 = 0, r1 = 0, r2 = 0, r3 = 0, r4 = 0, r5 = 0, r6 = 0, r7 = 0;
    Word* t = T;
    const Word* b = B;
    switch (entry) {
      do {
        case 0:
          add_row<0>(t, A, b[0], r0, r1, r2, r3, r4, r5, r6, r7);
          [[fallthrough]];
        case 1:
          add_row<1>(t, A, b[1], r1, r2, r3, r4, r5, r6, r7, r0);
          [[fallthrough]];
        case 2:
          add_row<2>(t, A, b[2], r2, r3, r4, r5, r6, r7, r0, r1);
          [[fallthrough]];
        case 3:
          add_row<3>(t, A, b[3], r3, r4, r5, r6, r7, r0, r1, r2);
          [[fallthrough]];
        case 4:
          add_row<4>(t, A, b[4], r4, r5, r6, r7, r0, r1, r2, r3);
          [[fallthrough]];
        case 5:
          add_row<5>(t, A, b[5], r5, r6, r7, r0, r1, r2, r3, r4);
          [[fallthrough]];
        case 6:
          add_row<6>(t, A, b[6], r6, r7, r0, r1, r2, r3, r4, r5);
          [[fallthrough]];
        case 7:
          add_row<7>(t, A, b[7], r7, r0, r1, r2, r3, r4, r5, r6);
          t += 8;
          b += 8;
      } while (b != end);
    }
    store(t, r0, r1, r2, r3, r4, r5, r6, r7);
    T += 8;
    A += 8;
  } while (--count != 0);
}

/// T[0, 2 * kSize) = products A[i] * A[j], i < j, at i + j; a zero at both ends.
template <int kSize>
[[gnu::always_inline]] inline void triangle_of(Word* T, const Word* A) {
  u64 p2, p3, p4, p5, p6, p7, p8, p9, p10, p11, p12, p13, p14;  // by position
  store(T, 0);
  store(T + 2 * kSize - 1, 0);
  if constexpr (kSize >= 2) triangle_row<false>(T, A, p2);
  if constexpr (kSize >= 3) triangle_row<false>(T, A, p2, p3, p4);
  if constexpr (kSize >= 4) triangle_row<false>(T, A, p3, p4, p5, p6);
  if constexpr (kSize >= 5) triangle_row<false>(T, A, p4, p5, p6, p7, p8);
  if constexpr (kSize >= 6) triangle_row<false>(T, A, p5, p6, p7, p8, p9, p10);
  if constexpr (kSize >= 7) triangle_row<false>(T, A, p6, p7, p8, p9, p10, p11, p12);
  if constexpr (kSize >= 8) triangle_row<false>(T, A, p7, p8, p9, p10, p11, p12, p13, p14);
  if constexpr (kSize == 2) store(T + 2, p2);
  if constexpr (kSize == 3) store(T + 3, p3, p4);
  if constexpr (kSize == 4) store(T + 4, p4, p5, p6);
  if constexpr (kSize == 5) store(T + 5, p5, p6, p7, p8);
  if constexpr (kSize == 6) store(T + 6, p6, p7, p8, p9, p10);
  if constexpr (kSize == 7) store(T + 7, p7, p8, p9, p10, p11, p12);
  if constexpr (kSize == 8) store(T + 8, p8, p9, p10, p11, p12, p13, p14);
}

template <int kSize>
void triangle(Word* T, const Word* A) {
  triangle_of<kSize>(T, A);
}

/// Adds the off-diagonal products of A[0, 8 * count) to T, of which the words [0, 8 * count) hold a sum and
/// the words above are stored. The words of a block: its triangle, then rows by all words above the block.
void triangle_blocks(Word* T, const Word* A, u64 count) {
  do {
    u64 r0, r1, r2, r3, r4, r5, r6, r7 = 0;
    {
      u64 p2, p3, p4, p5, p6, p7;
      triangle_row<true>(T, A, p2);
      triangle_row<true>(T, A, p2, p3, p4);
      triangle_row<true>(T, A, p3, p4, p5, p6);
      triangle_row<true>(T, A, p4, p5, p6, p7, r0);
      triangle_row<true>(T, A, p5, p6, p7, r0, r1, r2);
      triangle_row<true>(T, A, p6, p7, r0, r1, r2, r3, r4);
      triangle_row<true>(T, A, p7, r0, r1, r2, r3, r4, r5, r6);
    }
    Word* t = T + 8;
    const Word* b = A + 8;
    for (u64 i = --count; i != 0; --i) {
      add_row<0>(t, A, b[0], r0, r1, r2, r3, r4, r5, r6, r7);
      add_row<1>(t, A, b[1], r1, r2, r3, r4, r5, r6, r7, r0);
      add_row<2>(t, A, b[2], r2, r3, r4, r5, r6, r7, r0, r1);
      add_row<3>(t, A, b[3], r3, r4, r5, r6, r7, r0, r1, r2);
      add_row<4>(t, A, b[4], r4, r5, r6, r7, r0, r1, r2, r3);
      add_row<5>(t, A, b[5], r5, r6, r7, r0, r1, r2, r3, r4);
      add_row<6>(t, A, b[6], r6, r7, r0, r1, r2, r3, r4, r5);
      add_row<7>(t, A, b[7], r7, r0, r1, r2, r3, r4, r5, r6);
      t += 8;
      b += 8;
    }
    store(t, r0, r1, r2, r3, r4, r5, r6, r7);
    T += 16;
    A += 8;
  } while (count != 0);
}

// T[2i, 2i + 2) = 2 * T[2i, 2i + 2) + A[i]^2: the doubling along the carry flag, the sum along the overflow
// flag.
#define SQUARE(i)                                                                                            \
  "mov 8*" #i "(%[a]), %%rdx\n\tmulx %%rdx, %[lo], %[hi]\n\tmov 16*" #i "(%[t]), %[x]\n\tmov 8+16*" #i       \
  "(%[t]), %[y]\n\tadcx %[x], %[x]\n\tadcx %[y], %[y]\n\tadox %[lo], %[x]\n\tadox %[hi], %[y]\n\tmov %[x], " \
  "16*" #i "(%[t])\n\tmov %[y], 8+16*" #i "(%[t])\n\t"
#define SQUARES_1 SQUARE(0)
#define SQUARES_2 SQUARES_1 SQUARE(1)
#define SQUARES_3 SQUARES_2 SQUARE(2)
#define SQUARES_4 SQUARES_3 SQUARE(3)
#define SQUARES_5 SQUARES_4 SQUARE(4)
#define SQUARES_6 SQUARES_5 SQUARE(5)
#define SQUARES_7 SQUARES_6 SQUARE(6)
#define SQUARES_8 SQUARES_7 SQUARE(7)
#define SQUARE_OPERANDS [lo] "=&r"(lo), [hi] "=&r"(hi), [x] "=&r"(x), [y] "=&r"(y)

/// T[0, 2 * kSize) = A[0, kSize)^2.
template <int kSize>
void square(Word* T, const Word* A);
#define DEFINE_SQUARE(n)                                            \
  template <>                                                       \
  void square<n>(Word * T, const Word* A) {                         \
    u64 lo, hi, x, y;                                               \
    triangle_of<n>(T, A);                                           \
    asm volatile("xor %k[x], %k[x]\n\t" SQUARES_##n:SQUARE_OPERANDS \
                 : [a] "r"(A), [t] "r"(T)                           \
                 : "rdx", "cc", "memory");                          \
  }
DEFINE_SQUARE(1)
DEFINE_SQUARE(5)
DEFINE_SQUARE(6)
DEFINE_SQUARE(7)
DEFINE_SQUARE(8)

// Two to four words fit the registers: products off the diagonal at positions 1 up in p1 up, then the
// doubling and the squares on their way to T.
#define POSITION(n) [p##n] "=&r"(p##n)
#define DOUBLE_AT(p, square) \
  "adcx %[p" #p "], %[p" #p "]\n\tadox %[" #square "], %[p" #p "]\n\tmov %[p" #p "], 8*" #p "(%[t])\n\t"
#define SQUARE_OF(i) "mov 8*" #i "(%[a]), %%rdx\n\tmulx %%rdx, %[lo], %[hi]\n\t"
#define SQUARE_BEGIN "xor %k[z], %k[z]\n\t" SQUARE_OF(0) "mov %[lo], (%[t])\n\t" DOUBLE_AT(1, hi)
#define SQUARE_END(last) "adcx %[z], %[hi]\n\tadox %[z], %[hi]\n\tmov %[hi], 8*" #last "(%[t])"
template <>
void square<2>(Word* T, const Word* A) {
  Temporaries work;
  u64 p1, p2;
  asm volatile(
      "mov (%[a]), %%rdx\n\t"
      "mulx 8(%[a]), %[p1], %[p2]\n\t"  //
      SQUARE_BEGIN                      //
          SQUARE_OF(1) DOUBLE_AT(2, lo) SQUARE_END(3)
      : TEMPORARIES, POSITION(1), POSITION(2)
      : [a] "r"(A), [t] "r"(T)
      : "rdx", "cc", "memory");
}
template <>
void square<3>(Word* T, const Word* A) {
  Temporaries work;
  u64 p1, p2, p3, p4;
  asm volatile(
      "mov (%[a]), %%rdx\n\t"
      "mulx 8(%[a]), %[p1], %[p2]\n\t"
      "mulx 16(%[a]), %[lo], %[p3]\n\t"
      "mov 8(%[a]), %%rdx\n\t"
      "mulx 16(%[a]), %[hi], %[p4]\n\t"
      "add %[lo], %[p2]\n\t"
      "adc %[hi], %[p3]\n\t"
      "adc $0, %[p4]\n\t"  //
      SQUARE_BEGIN         //
          SQUARE_OF(1) DOUBLE_AT(2, lo) DOUBLE_AT(3, hi) SQUARE_OF(2) DOUBLE_AT(4, lo) SQUARE_END(5)
      : TEMPORARIES, POSITION(1), POSITION(2), POSITION(3), POSITION(4)
      : [a] "r"(A), [t] "r"(T)
      : "rdx", "cc", "memory");
}
template <>
void square<4>(Word* T, const Word* A) {
  Temporaries work;
  u64 p1, p2, p3, p4, p5, p6, low_23;
  asm volatile(
      "mov (%[a]), %%rdx\n\t"
      "mulx 8(%[a]), %[p1], %[p2]\n\t"
      "mulx 16(%[a]), %[lo], %[p3]\n\t"
      "mulx 24(%[a]), %[hi], %[p4]\n\t"
      "mov 24(%[a]), %%rdx\n\t"
      "mulx 8(%[a]), %[z], %[p5]\n\t"
      "mulx 16(%[a]), %[low_23], %[p6]\n\t"
      "add %[lo], %[p2]\n\t"
      "adc %[hi], %[p3]\n\t"
      "adc %[z], %[p4]\n\t"
      "adc %[low_23], %[p5]\n\t"
      "adc $0, %[p6]\n\t"
      "mov 8(%[a]), %%rdx\n\t"
      "mulx 16(%[a]), %[lo], %[hi]\n\t"
      "add %[lo], %[p3]\n\t"
      "adc %[hi], %[p4]\n\t"
      "adc $0, %[p5]\n\t"
      "adc $0, %[p6]\n\t"  //
      SQUARE_BEGIN         //
          SQUARE_OF(1) DOUBLE_AT(2, lo) DOUBLE_AT(3, hi) SQUARE_OF(2) DOUBLE_AT(4, lo) DOUBLE_AT(5, hi)
              SQUARE_OF(3) DOUBLE_AT(6, lo) SQUARE_END(7)
      : TEMPORARIES, POSITION(1), POSITION(2), POSITION(3), POSITION(4), POSITION(5),
        POSITION(6), [low_23] "=&r"(low_23)
      : [a] "r"(A), [t] "r"(T)
      : "rdx", "cc", "memory");
}

/// T[0, 2L) = 2 * T[0, 2L) + the squares of A[0, L), L >= 4: first L mod 4 of them, then fours. LEA and JRCXZ
/// leave both carries alone.
void double_and_add_squares(Word* T, const Word* A, u64 L) {
  u64 lo, hi, x, y, count = L % 4;
  asm volatile(
      "xor %k[x], %k[x]\n\t"
      "jrcxz 2f\n"
      "1:\t" SQUARES_1
      "lea 8(%[a]), %[a]\n\t"
      "lea 16(%[t]), %[t]\n\t"
      "lea -1(%%rcx), %%rcx\n\t"
      "jrcxz 2f\n\t"
      "jmp 1b\n"
      "2:\tmov %[fours], %%rcx\n"
      "3:\t" SQUARES_4
      "lea 32(%[a]), %[a]\n\t"
      "lea 64(%[t]), %[t]\n\t"
      "lea -1(%%rcx), %%rcx\n\t"
      "jrcxz 4f\n\t"
      "jmp 3b\n"
      "4:"
      : SQUARE_OPERANDS, [a] "+&r"(A), [t] "+&r"(T), "+&c"(count)
      : [fours] "r"(L / 4)
      : "rdx", "cc", "memory");
}

using Corner = void (*)(Word* T, const Word* A, const Word* B);
using Square = void (*)(Word* T, const Word* A);

/// [width][rows], rows at most width, both 1 to 8.
struct Corners {
  Corner of[9][9];
};
constexpr Corners kCorners = []<int... I>(std::integer_sequence<int, I...>) {
  Corners table{};
  (..., (table.of[I / 8 + 1][I % 8 + 1] =
             I % 8 <= I / 8 ? &corner<I / 8 + 1, std::min(I / 8, I % 8) + 1> : nullptr));
  return table;
}
(std::make_integer_sequence<int, 64>());
constexpr Square kSquares[] = {nullptr,    &square<1>, &square<2>, &square<3>, &square<4>,
                               &square<5>, &square<6>, &square<7>, &square<8>};
constexpr Square kTriangles[] = {nullptr,      &triangle<1>, &triangle<2>, &triangle<3>, &triangle<4>,
                                 &triangle<5>, &triangle<6>, &triangle<7>, &triangle<8>};

// 1 to 8 words, so that multiples of 8 are above them.
u64 corner_length(u64 length) { return (length - 1) % 8 + 1; }

// The corner, the rest of the long operand by the corner's rows, the rest of the short one by all of the
// long.
void multiply(Word* T, const Word* A, u64 AL, const Word* B, u64 BL) {
  if (AL <= 8) return kCorners.of[AL][BL](T, A, B);
  const u64 a = corner_length(AL), b = corner_length(BL);
  if (a >= b)
    kCorners.of[a][b](T, A, B);
  else
    kCorners.of[b][a](T, B, A);
  if (AL > a) blocks(T + a, A + a, B, b, (AL - a) / 8);
  if (BL > b) blocks(T + b, B + b, A, AL, (BL - b) / 8);
}

void square_any(Word* T, const Word* A, u64 L) {
  if (L <= 8) return kSquares[L](T, A);
  const u64 low = corner_length(L), count = (L - low) / 8;
  kTriangles[low](T, A);
  blocks(T + low, A + low, A, low, count);
  triangle_blocks(T + 2 * low, A + low, count);
  double_and_add_squares(T, A, L);
}

const Word* words(const void* p) { return static_cast<const Word*>(p); }
Word* words(void* p) { return static_cast<Word*>(p); }

void mul_u64(u64* T, const u64* A, u64 AL, const u64* B, u64 BL) {
  multiply(words(T), words(A), AL, words(B), BL);
}
void elm_u64(u64* T, const u64* A, const u64* B, u64 L) { multiply(words(T), words(A), L, words(B), L); }
void sqr_u64(u64* T, const u64* A, u64 L) { square_any(words(T), words(A), L); }

// Arrays of u32: the words in pairs, then an odd word's row.
void mul_u32(u32* T, const u32* A, u64 AL, const u32* B, u64 BL) {
  const u64 a = AL & ~u64{1}, b = BL & ~u64{1};
  if (b == 0) {
    T[AL] = mul_row(T, A, AL, B[0]);
    return;
  }
  multiply(words(T), words(A), a / 2, words(B), b / 2);
  if (AL > a) T[a + b] = orl::add_row(T + a, B, b, A[a]);
  if (BL > b) T[AL + b] = orl::add_row(T + b, A, AL, B[b]);
}
void elm_u32(u32* T, const u32* A, const u32* B, u64 L) { mul_u32(T, A, L, B, L); }
void sqr_u32(u32* T, const u32* A, u64 L) {
  const u64 even = L & ~u64{1};
  const u64 odd_square = u64{A[L - 1]} * A[L - 1];
  if (even != 0) square_any(words(T), words(A), even / 2);
  if (L == even) return;
  const u64 once = orl::add_row(T + even, A, even, A[even]);
  const u64 top = odd_square + once + orl::add_row(T + even, A, even, A[even]);
  T[2 * even] = static_cast<u32>(top);
  T[2 * even + 1] = static_cast<u32>(top >> 32);
}

}  // namespace

constinit const BasecaseKernels<u32> basecase_u32{"AVX2", &mul_u32, &elm_u32, &sqr_u32};
constinit const BasecaseKernels<u64> basecase_u64{"AVX2", &mul_u64, &elm_u64, &sqr_u64};

}  // namespace orl::avx2
