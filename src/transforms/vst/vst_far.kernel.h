// Residues of numbers on disks, on the passes of vst_pass.kernel.h: vst_far_kernels.h.
namespace orl::SIMD_ISA {
namespace {

void far_split(const VstPlan& plan, OperandBytes a, u64 count, double* out) {
  const u32 P = plan.shape.row.P;
  alignas(64) double limbs[4][8];
  for (u64 i = 0; i < count; i += kVstRow, out += kVstRow * P) {
    const bool filled = i * 3 * (P - 1) < a.bytes;
    if (filled) read_limbs(a, P, i, limbs);
    for (u32 r = 0; r < P; ++r) {
      const Mod mod(plan.primes.modulus[r]);
      for (u32 h = 0; h < kVstRow; h += L) {
        F64 v = F64::all(0);
        if (filled) {
          v = F64::load(limbs[0] + h);
          for (u32 j = 1; j < P / 2; ++j)
            v = v + mod.times(F64::load(limbs[j] + h), plan.primes.set->limb[r][j]);
          v = mod.reduce(v);
        }
        v.store(out + r * kVstRow + h);
      }
    }
  }
}

// The rows of all sequences at one position, in place.
RESIDUE_INLINE void odd_rows(const VstPlan& plan, double* F, u64 sequence_stride) {
  const u32 P = plan.shape.row.P, k = plan.shape.row.k;
  for (u32 r = 0; r < P; ++r) {
    const ResidueModulus& modulus = plan.primes.modulus[r];
    const Mod mod(modulus);
    for (u32 h = 0; h < kVstRow; h += L) {
      double* const x = F + r * kVstRow + h;
      F64 v[7];
      v[0] = F64::load(x);
      for (u32 t = 1; t < k; ++t) {
        v[t] = F64::load(x + t * sequence_stride);
        if (plan.root && t % 2) v[t] = F64::all(0) - v[t];
      }
      for (u32 j = 0; j < k; ++j) {
        F64 sum = v[0];
        for (u32 t = 1; t < k; ++t) sum = sum + (j ? mod.times(v[t], modulus.odd[j * t % k]) : v[t]);
        mod.reduce(sum).store(x + j * sequence_stride);
      }
    }
  }
}

void far_start(const VstPlan& plan, double* F, u64 begin, u64 end) {
  const u64 sequence_stride = plan.child(1, 0);
  for_stage_columns(plan, F, begin, end, [&](u64, Columns c) {
    if (plan.shape.row.k > 1)
      for_stage_rows(plan, c, [&](double* x, u64) { odd_rows(plan, x, sequence_stride); });
    for (u32 j = 0; j < plan.shape.row.k; ++j, c.x += sequence_stride) {
      c.sequence = j;
      forward_columns<false>(plan, c, plan.shape.a);
    }
  });
}

// A few rows at a time: body(place in a row of the stripe, columns of each sequence).
template <class Body>
RESIDUE_INLINE void for_stripe_columns(const VstPlan& plan, const VstStripe& s, u64 begin, u64 end,
                                       Body&& body) {
  for (u64 row = begin; row < end; row += kWidth) {
    const u32 width = static_cast<u32>(end - row < kWidth ? end - row : kWidth);
    double* const x = s.x + row * plan.shape.row_doubles();
    body(x, Columns{x, s.row_stride, width, s.sequence, s.level, s.node});
  }
}
template <class Body>
RESIDUE_INLINE void for_stripe_rows(const VstPlan& plan, const VstStripe& s, const Columns& c, Body&& body) {
  for (u64 j = 0; j < u64{1} << s.levels; ++j)
    for (u32 row = 0; row < c.rows; ++row)
      body(c.x + j * s.row_stride + row * plan.shape.row_doubles(), s.sequence_stride);
}
// More levels than a pass has: the upper ones of rows far apart, then those of neighbours.
RESIDUE_INLINE u32 upper_levels(const VstStripe& s) {
  return s.levels < kVstMaxLevels ? s.levels : kVstMaxLevels;
}
template <class Body>
RESIDUE_INLINE void for_upper(const VstStripe& s, Columns c, Body&& body) {
  const u64 groups = u64{1} << (s.levels - upper_levels(s));
  c.stride *= groups;
  for (u64 b = 0; b < groups; ++b, c.x += s.row_stride) body(c, upper_levels(s));
}
template <class Body>
RESIDUE_INLINE void for_lower(const VstStripe& s, Columns c, Body&& body) {
  const u32 upper = upper_levels(s), lower = s.levels - upper;
  if (lower == 0) return;
  c.level += upper;
  c.node <<= upper;
  for (u64 a = 0; a < u64{1} << upper; ++a, ++c.node, c.x += s.row_stride << lower) body(c, lower);
}

void far_columns(const VstPlan& plan, const VstStripe& s, u64 begin, u64 end) {
  for_stripe_columns(plan, s, begin, end, [&](double*, Columns c) {
    if (s.sequences > 1) for_stripe_rows(plan, s, c, [&](double* x, u64 apart) { odd_rows(plan, x, apart); });
    for (u32 j = 0; j < s.sequences; ++j, ++c.sequence, c.x += s.sequence_stride) {
      for_upper(s, c, [&](const Columns& part, u32 levels) { forward_columns<false>(plan, part, levels); });
      for_lower(s, c, [&](const Columns& part, u32 levels) { forward_columns<true>(plan, part, levels); });
    }
  });
}
void far_columns_back(const VstPlan& plan, const VstStripe& s, u64 begin, u64 end) {
  for_stripe_columns(plan, s, begin, end, [&](double*, const Columns& first) {
    Columns c = first;
    for (u32 j = 0; j < s.sequences; ++j, ++c.sequence, c.x += s.sequence_stride) {
      for_lower(s, c, [&](const Columns& part, u32 levels) { inverse_columns(plan, part, levels); });
      for_upper(s, c, [&](const Columns& part, u32 levels) { inverse_columns(plan, part, levels); });
    }
    if (s.sequences > 1)
      for_stripe_rows(plan, s, first, [&](double* x, u64 apart) { merge_rows(plan, x, apart); });
  });
}

}  // namespace

extern const VstFarKernels vst_far_kernel_table;
constinit const VstFarKernels vst_far_kernel_table{
    &far_split,
    &far_start,
    &far_columns,
    &far_columns_back,
};

}  // namespace orl::SIMD_ISA
