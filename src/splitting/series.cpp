#include "splitting/series.h"

#include <algorithm>

namespace orl {

template <class W>
u64 GeometricSeries<W>::terms_for(u64 p, DoubleDouble rate) {
  return (DoubleDouble::from_u64(p) * DoubleDouble(Series<W>::word_bits) * DoubleDouble::ln2() / rate +
          DoubleDouble(1.5))
      .rint_u64();
}

template <class W>
u64 Series<W>::remaining_words(u64 a) const {
  return nats_to_words_rounded<W>(remaining(a)) + 1;
}

template <class W>
u64 Series<W>::bound_words(u32 number, u64 a, u64 b) const {
  return nats_to_words<W>(sizes_->part(number, sizes_->size(a, b)) + sizes_->excess(a, b));
}

template <class W>
NodeWords Series<W>::bound_words(u64 a, u64 b) const {
  const DoubleDouble nats = sizes_->size(a, b), excess = sizes_->excess(a, b);
  NodeWords words{};
  for (u32 i = 0; i < kind_.numbers(); ++i) words[i] = nats_to_words<W>(sizes_->part(i, nats) + excess);
  return words;
}

template <class W>
u64 Series<W>::product_words(u32 number, DoubleDouble nats, u64 b) const {
  return nats_to_words<W>(sizes_->part(number, nats) + DoubleDouble(2) * sizes_->excess(0, b)) + 1;
}

template <class W>
NodeWords Series<W>::product_words(DoubleDouble nats, u64 b) const {
  NodeWords words{};
  for (u32 i = 0; i < kind_.numbers(); ++i) words[i] = product_words(i, nats, b);
  return words;
}

template <class W>
NodeWords Series<W>::scratch_words(DoubleDouble nats, u64 a, u64 b) const {
  // Each level adds a left number that may be longer than its model by the excess, a word for rounding up and
  // 7 for the right half's start. Levels: while a node has more terms than kCountedRange, it is at least as
  // large as the first such range and its size is halved; then five levels down to a leaf.
  const double top = nats.to_double();
  const double off = sizes_->imbalance(b).to_double();
  const bool counted = b - a <= kCountedRange;
  const double smallest = counted ? top : size(a, a + kCountedRange + 1).to_double();
  u64 levels = 6;
  for (double d = top; !counted && d + off >= smallest && levels < 128; d = d / 2 + off) {
    ++levels;
    if (d / 2 + off >= d) break;
  }
  const DoubleDouble excess = sizes_->excess(0, b);
  const u64 per_level = 9 + nats_to_words<W>(excess);
  NodeWords words{};
  for (u32 i = 0; i < kind_.numbers(); ++i)
    words[i] = nats_to_words<W>(sizes_->part(i, nats) + excess) + per_level * levels;
  return words;
}

template class Series<u32>;
template class Series<u64>;
template class GeometricSeries<u32>;
template class GeometricSeries<u64>;

}  // namespace orl
