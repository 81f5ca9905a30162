#include "transforms/vst/vst_shape.h"

#include <algorithm>
#include <cmath>

#include "core/exceptions.h"
#include "transforms/c17/residue_bounds.h"

namespace orl {
namespace {

constexpr VstRow kRows[] = {
#include "transforms/vst/vst_rows.inc"
};

// 2^12 points of nine primes take 288 KiB: two operands stay in a cache of 1 MiB.
constexpr u32 kCacheLevels = 12;

// Intervals in units of p. Roots are products of two of the table, within 0.51; their ratios are rounded from
// a corrected quotient, so a product is off by at most 2^-54 (1 + 2^-20) of its operand's ratio to p beside
// the half of the rounded quotient.
constexpr double kReduced = 0.51;
constexpr double kLargest = 8;  // 8 * 2^48 = 2^51: quotients below 2^51, sums exact

/// An odd factor widens the columns of the first stage.
u32 first_stage_levels(u32 k) { return k == 1 ? 8 : k == 3 ? 7 : 6; }

double product(double a) { return 0.5 + a * (0x1p-6 + 0x1p-26); }

/// One pass of 2^levels rows, as the kernels run it.
struct Bounds {
  double now = kReduced, largest = kReduced;

  void see(double value) { largest = std::max(largest, value); }
  void forward(u32 levels, bool reduce) {
    double b[16];
    const u32 R = 1u << levels;
    for (u32 j = 0; j < R; ++j) b[j] = reduce && j < R / 2 ? kReduced : now;
    for (u32 half = R / 2; half; half /= 2)
      for (u32 j = 0; j < R; ++j)
        if (!(j & half)) b[j] = b[j + half] = b[j] + product(b[j + half]);
    now = *std::max_element(b, b + R);
    see(now);
  }
  void inverse(u32 levels) {
    double b[16];
    const u32 R = 1u << levels;
    std::fill_n(b, R, now);
    for (u32 half = 1; half < R; half *= 2) {
      for (u32 j = 0; j < R; ++j)
        if (!(j & half)) {
          b[j] += b[j + half];
          see(b[j]);
          b[j + half] = product(b[j]);
        }
      if (levels == 4 && half == 2)
        for (u32 j = 0; j < R; j += 4) b[j] = kReduced;
    }
    std::fill_n(b, R / 2, kReduced);
    now = *std::max_element(b, b + R);
  }
  void forward_columns(u32 levels, bool reduce) {
    for (; levels; reduce = false) {
      const u32 first = vst_pass_levels(levels);
      forward(first, reduce);
      levels -= first;
    }
  }
  void inverse_columns(u32 levels) {
    if (!levels) return;
    const u32 first = vst_pass_levels(levels);
    inverse_columns(levels - first);
    inverse(first);
  }
};

}  // namespace

double vst_largest_residue(const VstShape& shape) {
  Bounds bounds;
  bounds.forward_columns(shape.a, false);
  for (u32 l = shape.child_levels(); l > shape.c; l -= shape.b) bounds.forward_columns(shape.b, true);
  bounds.forward_columns(shape.c - kVstTileLevels, true);
  bounds.forward(3, false);
  // Down to four terms and their products.
  const double terms = kReduced + product(kReduced);
  bounds.see(terms);
  const double sum = 4 * (0.5 + terms * terms * 0x1p-4);
  bounds.see(2 * sum);
  bounds.now = std::max(kReduced, product(2 * sum));
  bounds.inverse(3);
  bounds.inverse_columns(shape.c - kVstTileLevels);
  for (u32 l = shape.c; l < shape.child_levels(); l += shape.b) bounds.inverse_columns(shape.b);
  bounds.inverse_columns(shape.a);
  bounds.see(shape.row.k * product(product(bounds.now)) + 0.5);
  return bounds.largest;
}

VstShape::VstShape(const VstRow& from, Unchecked) : row(from.row()), a(from.a), b(from.b), c(from.c) {
  const u32 n = row.n;
  const u32 first_levels = first_stage_levels(row.k);
  if (c == 0 && n >= kVstTileLevels + 2) {
    c = std::clamp<u32>(n - 4, kVstTileLevels, kCacheLevels);
    u32 passes = 1;
    while (n - c > first_levels + (passes - 1) * kVstMaxLevels) ++passes;
    b = passes == 1
            ? 0
            : std::max((n - c + passes - 1) / passes, (n - c - first_levels + passes - 2) / (passes - 1));
    a = n - c - (passes - 1) * b;
  }
}

VstShape::VstShape(const VstRow& from) : VstShape(from, Unchecked()) {
  if (!holds()) throw InvalidParametersException("VST", "Invalid Function Parameters:   ");
}

bool VstShape::holds() const {
  const u32 n = row.n, first_levels = first_stage_levels(row.k);
  const u32 nested = n - a - c;  // a wrapped difference is refused as well
  const bool blocks = a >= 1 && a <= first_levels && b <= kVstMaxLevels && c >= kVstTileLevels &&
                      c <= kCacheLevels && (b ? nested % b == 0 && nested <= n : nested == 0);
  return blocks && residue_row_holds(row) && vst_largest_residue(*this) <= kLargest;
}

bool vst_row_holds(const VstRow& row) { return VstShape(row, VstShape::Unchecked()).holds(); }

std::span<const VstRow> vst_rows() { return kRows; }

}  // namespace orl
