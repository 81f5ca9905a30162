// Residues of numbers on disks, on the passes of residue_pass.kernel.h: residue_far_kernels.h.
namespace orl::SIMD_ISA {
namespace {

// Reduced residues come and go as integers: added to this, they are the low bits of a double.
constexpr double kPackedZero = 0x1p52 + 0x1p47;

void split_block(const ResiduePlan& plan, ResiduePrimes primes, OperandBytes a, u64 count, double* out,
                 u64 stride) {
  const u64 bytes = 3 * (u64{plan.row.P} - 1);
  alignas(64) double limbs[4][8];
  for (u64 i = 0; i < count; i += 8, out += 8) {
    const bool filled = i * bytes < a.bytes;
    if (filled) read_limbs(a, plan.row.P, i, limbs);
    for (u32 r = primes.first; r < primes.last; ++r) {
      const Mod mod(plan.modulus[r]);
      for (u32 h = 0; h < 8; h += L) {
        F64 v = F64::all(0);
        if (filled) {
          v = F64::load(limbs[0] + h);
          for (u32 j = 1; j < plan.row.P / 2; ++j)
            v = v + mod.times(F64::load(limbs[j] + h), plan.set->limb[r][j]);
          v = mod.reduce(v);
        }
        v.store(out + (r - primes.first) * stride + h);
      }
    }
  }
}

void pack(const ResidueModulus& modulus, const double* x, u64 count, u8* packed) {
  const Mod mod(modulus);
  const F64 zero = F64::all(kPackedZero);
  const U64 mask = U64::all(kLimbMask);
  for (u64 i = 0; i < count; i += 8, packed += 48) {
    u64 field[8], words[6];
    for (u32 h = 0; h < 8; h += L) (as_bits(mod.reduce(F64::load(x + i + h)) + zero) & mask).store(field + h);
    for (u32 half = 0; half < 2; ++half) {
      const u64* f = field + 4 * half;
      words[3 * half] = f[0] | f[1] << 48;
      words[3 * half + 1] = f[1] >> 16 | f[2] << 32;
      words[3 * half + 2] = f[2] >> 32 | f[3] << 16;
    }
    __builtin_memcpy(packed, words, 48);
  }
}

void unpack(const u8* packed, u64 count, double* x) {
  const F64 zero = F64::all(kPackedZero), two52 = F64::all(0x1p52);
  const U64 mask = U64::all(kLimbMask);
  for (u64 i = 0; i < count; i += 8, packed += 48) {
    u8 local[56] = {};  // the last field is read with what follows it
    const u8* from = packed;
    if (i + 8 >= count) from = static_cast<u8*>(__builtin_memcpy(local, packed, 48));
    for (u32 h = 0; h < 8; h += L)
      (as_doubles((U64::load_strided(from + 6 * h, 6) & mask) | as_bits(two52)) - zero).store(x + i + h);
  }
}

template <u32 K>
void columns_of(const ResiduePlan& plan, u32 r, const ResidueColumns& c, u64 begin, u64 end, double* tile) {
  const ResidueModulus& modulus = plan.modulus[r];
  const Mod mod(modulus);
  const OddFactor<K> odd(plan.row.n);
  const u64 rows = c.rows(), C = c.tile_columns;
  const bool turned = plan.negacyclic();
  for (u64 at = begin; at < end; at += C) {
    const u64 width = end - at < C ? end - at : C;
    for (u64 j = 0; j < rows; ++j) {
      const u64 i = c.position + j * c.position_stride + at;
      double* const x = c.x + j * c.row_stride + at;
      double* const to = rows == 1 ? x : tile + j * C;
      const u64 to_stride = rows == 1 ? c.sequence_stride : rows * C;
      if (j + kRowsAhead < rows)
        for (u32 t = 0; t < K; ++t)
          fetch_rows<1>(x + t * c.sequence_stride + kRowsAhead * c.row_stride, 0, 1, width);
      for (u64 h = 0; h < width; h += L) {
        F64 v[K];
#pragma GCC unroll 7
        for (u32 t = 0; t < K; ++t) {
          v[t] = F64::load(x + t * c.sequence_stride + h);
          if (turned && t % 2) v[t] = F64::all(0) - v[t];
        }
        odd.forward(mod, plan.set->dft[r], i + h, v);
#pragma GCC unroll 7
        for (u32 t = 0; t < K; ++t) mod.reduce(v[t]).store(to + t * to_stride + h);
      }
    }
    if (rows == 1) continue;
    for (u32 t = 0; t < K; ++t)
      forward_rows(modulus, c.node, c.levels, {tile + t * rows * C, C},
                   {c.x + t * c.sequence_stride + at, c.row_stride}, width, false);
  }
}

template <u32 K>
void columns_back_of(const ResiduePlan& plan, u32 r, const ResidueColumns& c, u64 begin, u64 end,
                     double* tile) {
  const ResidueModulus& modulus = plan.modulus[r];
  const Mod mod(modulus);
  const OddFactor<K> odd(plan.row.n);
  const u64 rows = c.rows(), C = c.tile_columns;
  const bool turned = plan.negacyclic();
  for (u64 at = begin; at < end; at += C) {
    const u64 width = end - at < C ? end - at : C;
    if (rows > 1)
      for (u32 t = 0; t < K; ++t) {
        const double* const x = c.x + t * c.sequence_stride + at;
        if (t + 1 < K) fetch_rows<1>(x + c.sequence_stride, c.row_stride, rows, width);
        inverse_rows(modulus, c.node, c.levels, {x, c.row_stride}, {tile + t * rows * C, C}, width);
      }
    for (u64 j = 0; j < rows; ++j) {
      const u64 i = c.position + j * c.position_stride + at;
      double* const x = c.x + j * c.row_stride + at;
      const double* const from = rows == 1 ? x : tile + j * C;
      const u64 from_stride = rows == 1 ? c.sequence_stride : rows * C;
      for (u64 h = 0; h < width; h += L) {
        F64 v[K];
#pragma GCC unroll 7
        for (u32 t = 0; t < K; ++t) v[t] = mod.reduce(F64::load(from + t * from_stride + h));
        odd.inverse(mod, plan.set->dft[r], i + h, v);
#pragma GCC unroll 7
        for (u32 t = 0; t < K; ++t) {
          if (K > 1) v[t] = mod.reduce(v[t]);
          (turned && t % 2 ? F64::all(0) - v[t] : v[t]).store(x + t * c.sequence_stride + h);
        }
      }
    }
  }
}

void columns(const ResiduePlan& plan, u32 r, const ResidueColumns& c, u64 begin, u64 end, double* tile) {
  with_odd_factor(c.odd, [&](auto k) { columns_of<k>(plan, r, c, begin, end, tile); });
}
void columns_back(const ResiduePlan& plan, u32 r, const ResidueColumns& c, u64 begin, u64 end, double* tile) {
  with_odd_factor(c.odd, [&](auto k) { columns_back_of<k>(plan, r, c, begin, end, tile); });
}

}  // namespace

extern const ResidueFarKernels residue_far_kernel_table;
constinit const ResidueFarKernels residue_far_kernel_table{
    &split_block, &pack, &unpack, &columns, &columns_back,
};

}  // namespace orl::SIMD_ISA
