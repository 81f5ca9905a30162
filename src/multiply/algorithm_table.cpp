#include "multiply/algorithm_table.h"

#include <algorithm>
#include <utility>

#include "core/ending.h"
#include "core/exceptions.h"
#include "simd/target.h"

namespace orl {
namespace {

constexpr u64 kEverything = ~u64{0};

// The lists of the targets: kScalarRows, kAvx2Rows, kAvx512Rows, kAvx512IfmaRows.
constexpr u64 kLargestC17 = 0x12C0000000000, kLargestN64 = 0x3800000000000000;
#include "multiply/algorithm_rows.inc"

AlgorithmRegistry& mutable_registry() {
  static AlgorithmRegistry registry;
  return registry;
}

template <class W>
AlgorithmTable<W>& default_table() {
  static AlgorithmTable<W> table(sizeof(W) == 4 ? "Basic: 32-bit Word" : "Basic: 64-bit Word");
  return table;
}

template <class W>
void initialize_table(std::vector<std::string>& warnings) {
  for (std::string& warning : default_table<W>().add_list(mutable_registry(), default_basic_rows()))
    warnings.push_back(std::move(warning));
  detail::active_table<W> = &default_table<W>();
}

}  // namespace

TrimmedProduct trim_product(u64 skip, u64 len, u64 AL, u64 BL) {
  TrimmedProduct t{0, AL, 0, BL, skip, len};
  const bool a_is_longer = AL >= BL;
  u64& long_offset = a_is_longer ? t.a_offset : t.b_offset;
  u64& short_offset = a_is_longer ? t.b_offset : t.a_offset;
  u64& long_length = a_is_longer ? t.a_length : t.b_length;
  u64& short_length = a_is_longer ? t.b_length : t.a_length;
  if (short_length < skip) {
    const u64 from_long = skip - short_length;
    const u64 from_short = long_length < skip ? skip - long_length : 0;
    long_offset += from_long;
    long_length -= from_long;
    short_offset += from_short;
    short_length -= from_short;
    t.skip -= from_long + from_short;
    t.len -= from_long + from_short;
  }
  const u64 above = long_length + short_length - t.len;
  const u64 long_cut = above > short_length ? above - short_length : 0;
  const u64 short_cut = above > long_length ? above - long_length : 0;
  long_length -= long_cut;
  short_length -= short_cut;
  return t;
}

TrimmedProduct trim_square(u64 skip, u64 len, u64 L) {
  u64 low = 0;
  if (L < skip) {
    low = skip - L;
    L -= low;
    skip -= 2 * low;
    len -= 2 * low;
  }
  const u64 length = std::min(len, L);
  return {low, length, low, length, skip, len};
}

void AlgorithmRegistry::add(std::string_view id, const AlgorithmInstances& instances) {
  if (!algorithms_.emplace(id, instances).second)
    throw InvalidParametersException("AlgorithmRegistry::add()", "Duplicate algorithm: " + std::string(id));
}

const AlgorithmInstances* AlgorithmRegistry::find(std::string_view id) const {
  const auto found = algorithms_.find(id);
  return found == algorithms_.end() ? nullptr : &found->second;
}

namespace {

/// Whether products of `bits` can be made from wrapped ones of half the length.
bool wraps(const Algorithm& algorithm, u64 bits) {
  ParametersBox box;
  return algorithm.parameters_for(box, nullptr, bits, 1).cyclic_words() != 0;
}

u64 bytes_of(const MultiplySizes& sizes, u64 transforms) {
  return transforms * sizes.transform_bytes + sizes.scratch_bytes;
}

/// Words up to which bounded products take no more than one of `at` words: up to the next larger shape, whole or half.
/// The window of a longer product is no shorter.
u64 bounded_alike_words(const Algorithm& algorithm, u64 at, u32 word_bits, u64 tds) {
  const u64 k = word_bits / 32;
  ParametersBox box;
  u64 words = algorithm.parameters_for(box, nullptr, at * word_bits, tds).max_bits() / word_bits;
  const Parameters& half = algorithm.parameters_for(box, nullptr, (at * k + 1) / 2 * 32, tds);
  for (const u64 half_words : {half.max_bits() / 32, half.cyclic_words()})
    if (2 * half_words / k >= at) words = std::min(words, 2 * half_words / k);
  return words;
}

}  // namespace

template <class W>
void AlgorithmTable<W>::add(u64 threshold, const Algorithm* algorithm) {
  if (algorithm == nullptr) return;
  if (!entries_.empty() && entries_.back().threshold >= threshold)
    throw StringException("AlgorithmTable::add()", "Thresholds must be increasing.");
  if (threshold > algorithm->max_bits() / word_bits)
    throw StringException("AlgorithmTable::add()", "Thresholds is larger than maximum size.");
  if (entries_.empty()) {
    schoolbook_words_ = std::min(threshold, algorithm->schoolbook_words());
  } else if (Entry& below = entries_.back(); !below.algorithm->transforms_are_copies()) {
    const u64 bits = below.threshold * word_bits;
    if (!wraps(*below.algorithm, bits) && wraps(*algorithm, bits)) below.lean = algorithm;
  }
  entries_.push_back({threshold, algorithm});
}

template <class W>
void AlgorithmTable<W>::add(u64 threshold, std::unique_ptr<Algorithm> owned) {
  add(threshold, owned.get());
  owned_.push_back(std::move(owned));
}

template <class W>
std::vector<std::string> AlgorithmTable<W>::add_list(const AlgorithmRegistry& registry,
                                                     std::span<const AlgorithmRow> rows) {
  std::vector<std::string> warnings;
  for (const AlgorithmRow& row : rows) {
    const std::string id(row.id);
    const AlgorithmInstances* instances = registry.find(id);
    if (instances == nullptr) {
      warnings.push_back("Skipping unknown algorithm: " + id);
      continue;
    }
    if (instances->basic<W>() == nullptr)
      warnings.push_back("Warning: " + id + " does not support: \"" + name_ + "\"");
    add(row.threshold_bits / word_bits, instances->basic<W>());
  }
  return warnings;
}

template <class W>
auto AlgorithmTable<W>::find(u64 words, const char* function) const -> const Entry& {
  for (const Entry& entry : entries_)
    if (entry.threshold >= words) return entry;
  throw LimitExceededException(function, 0, words);
}

template <class W>
const Algorithm& AlgorithmTable<W>::get_algorithm(u64 words) const {
  return *find(words, "AlgorithmTable::get_algorithm()").algorithm;
}

template <class W>
const Algorithm& AlgorithmTable<W>::get_lean_algorithm(u64 words) const {
  const Entry& entry = find(words, "AlgorithmTable::get_algorithm()");
  const Algorithm* const lean = entry.lean_at(words);
  return lean ? *lean : *entry.algorithm;
}

template <class W>
const Parameters& AlgorithmTable<W>::parameters_for(ParametersBox& out, const TransformTables* tables,
                                                    u64 words, u64 tds, ShapeChoice choice) const {
  const Entry& entry = find(words, "AlgorithmTable::get_algorithm()");
  const Algorithm* const lean = choice == ShapeChoice::kLean ? entry.lean_at(words) : nullptr;
  return (lean ? *lean : *entry.algorithm).parameters_for(out, tables, words * word_bits, tds);
}

template <class W>
MultiplySizes AlgorithmTable<W>::sizes(u64 words, u64 tds) const {
  return find(words, "AlgorithmTableB::mSBsizes()").algorithm->sizes(words * word_bits, tds);
}

template <class W>
const Parameters& AlgorithmTable<W>::parameters_within(u64 bytes, u64 transforms, ParametersBox& out,
                                                       const TransformTables* tables, u64 words,
                                                       u64 tds) const {
  const bool holds = bytes_of(sizes(words, tds), transforms) <= bytes;
  return parameters_for(out, tables, words, tds, holds ? ShapeChoice::kRow : ShapeChoice::kLean);
}

// body(row, at) looks at products of `at` words and returns up to how many words they are all alike in that row. Those of
// less than a 64th of the words are left out: the bytes of two shapes per word differ by less than that, and so a plan for
// 10^15 digits takes a sixth of the time.
template <class W>
template <class Body>
void AlgorithmTable<W>::for_each_shape(u64 words, Body&& body) const {
  find(words, "AlgorithmTableB::mSBsizes()");
  u64 at = std::max<u64>(words >> 6, 1);
  for (const Entry& entry : entries_)
    for (const u64 end = std::min(entry.threshold, words); at <= end;)
      at = std::max(at, std::min(body(entry, at), end)) + 1;
}

template <class W>
ProductSizes AlgorithmTable<W>::max_sizes(u64 words, u64 tds) const {
  ProductSizes largest;
  for_each_shape(words, [&](const Entry& entry, u64 at) {
    ParametersBox box;
    const Parameters& shape = entry.algorithm->parameters_for(box, nullptr, at * word_bits, tds);
    largest.product_bytes = std::max(largest.product_bytes, shape.sizes().total_bytes());
    largest.square_bytes = std::max(largest.square_bytes, shape.sizes().square_bytes());
    return shape.max_bits() / word_bits;
  });
  return largest;
}

template <class W>
u64 AlgorithmTable<W>::max_least_bytes(u64 words, u64 tds, u64 transforms) const {
  u64 largest = 0;
  for_each_shape(words, [&](const Entry& entry, u64 at) {
    ParametersBox box;
    u64 bytes = ~u64{0}, alike = ~u64{0};
    const auto look_at = [&](const Algorithm& algorithm) {
      const Parameters& shape = algorithm.parameters_for(box, nullptr, at * word_bits, tds);
      bytes = std::min(bytes, bytes_of(shape.sizes(), transforms));
      alike = std::min(alike, shape.max_bits() / word_bits);
    };
    look_at(*entry.algorithm);
    if (const Algorithm* const lean = entry.lean_at(at)) look_at(*lean);
    largest = std::max(largest, bytes);
    return alike;
  });
  return largest;
}

template <class W>
ProductSizes AlgorithmTable<W>::cost(u64 p, u64 tds) const {
  const u64 words = 2 * p + 6;
  find(words, "AlgorithmTableB::mSBsize()");
  return max_bounded_sizes(words, tds, p + 2);
}

template <class W>
void AlgorithmTable<W>::sqr_trimmed(const MultiplyContext& ctx, Window<W> T, Words<W> A) const {
  const TrimmedProduct t = trim_square(T.skip, T.len, A.count);
  get_algorithm(2 * t.a_length).sqr_window(ctx, t.window(T.T), t.a(A));
}

template <class W>
void AlgorithmTable<W>::mul_trimmed(const MultiplyContext& ctx, Window<W> T, Words<W> A, Words<W> B) const {
  const TrimmedProduct t = trim_product(T.skip, T.len, A.count, B.count);
  get_algorithm(t.a_length + t.b_length).mul_window(ctx, t.window(T.T), t.a(A), t.b(B));
}

template <class W>
ProductSizes AlgorithmTable<W>::max_bounded_sizes(u64 words, u64 tds, u64 window) const {
  ProductSizes largest;
  for_each_shape(words, [&](const Entry& entry, u64 at) {
    const u64 bits = at * word_bits, window_bits = std::min(at, window) * word_bits;
    ProductSizes sizes = entry.algorithm->bounded_sizes(bits, window_bits, tds);
    u64 alike = bounded_alike_words(*entry.algorithm, at, word_bits, tds);
    if (const Algorithm* const lean = entry.lean_at(at)) {
      const ProductSizes least = lean->bounded_sizes(bits, window_bits, tds);
      sizes.product_bytes = std::min(sizes.product_bytes, least.product_bytes);
      sizes.square_bytes = std::min(sizes.square_bytes, least.square_bytes);
      alike = std::min(alike, bounded_alike_words(*lean, at, word_bits, tds));
    }
    largest.product_bytes = std::max(largest.product_bytes, sizes.product_bytes);
    largest.square_bytes = std::max(largest.square_bytes, sizes.square_bytes);
    return alike;
  });
  return largest;
}

template <class W>
void AlgorithmTable<W>::sqr_bounded(const MultiplyContext& ctx, Window<W> T, Words<W> A) const {
  if (schoolbook(T, 2 * A.count)) return sqrB(T.T, A.ptr, A.count);
  const TrimmedProduct t = trim_square(T.skip, T.len, A.count);
  const Entry& entry = find(2 * t.a_length, "AlgorithmTable::get_algorithm()");
  const Algorithm* const lean = entry.lean_at(2 * t.a_length);
  const auto holds = [&](const Algorithm& algorithm) {
    return ctx.scratch.size >= algorithm.sizes(2 * t.a_length * word_bits, ctx.parallel.tds).square_bytes();
  };
  if (holds(*entry.algorithm)) return entry.algorithm->sqr_window(ctx, t.window(T.T), t.a(A));
  const Algorithm& algorithm = lean ? *lean : *entry.algorithm;
  if (lean && holds(algorithm)) return algorithm.sqr_window(ctx, t.window(T.T), t.a(A));
  algorithm.sqr_bounded(ctx, t.window(T.T), t.a(A));
}

template <class W>
void AlgorithmTable<W>::mul_bounded(const MultiplyContext& ctx, Window<W> T, Words<W> A, Words<W> B) const {
  if (schoolbook(T, A.count + B.count)) return mulB(T.T, A.ptr, A.count, B.ptr, B.count);
  const TrimmedProduct t = trim_product(T.skip, T.len, A.count, B.count);
  const u64 words = t.a_length + t.b_length;
  const Entry& entry = find(words, "AlgorithmTable::get_algorithm()");
  const Algorithm* const lean = entry.lean_at(words);
  const auto holds = [&](const Algorithm& algorithm) {
    return ctx.scratch.size >= algorithm.sizes(words * word_bits, ctx.parallel.tds).total_bytes();
  };
  if (holds(*entry.algorithm)) return entry.algorithm->mul_window(ctx, t.window(T.T), t.a(A), t.b(B));
  const Algorithm& algorithm = lean ? *lean : *entry.algorithm;
  if (lean && holds(algorithm)) return algorithm.mul_window(ctx, t.window(T.T), t.a(A), t.b(B));
  algorithm.mul_bounded(ctx, t.window(T.T), t.a(A), t.b(B));
}

template <class W>
template <class Body>
void AlgorithmTable<W>::for_each_reached(u64 bits, Body&& body) const {
  const u64 words = bits == kEverything ? max_words() : (bits + word_bits - 1) / word_bits;
  if (words > max_words()) throw LimitExceededException("AlgorithmTable::ensure_tables()", 0, bits);
  // An algorithm with several rows is asked once, for its largest product.
  std::vector<std::pair<const Algorithm*, u64>> reached;
  const auto reach = [&](const Algorithm* algorithm, u64 largest) {
    for (auto& [known, most] : reached)
      if (known == algorithm) {
        most = std::max(most, largest);
        return;
      }
    reached.emplace_back(algorithm, largest);
  };
  for (u64 row = 0; row < entries_.size() && (row == 0 || entries_[row - 1].threshold < words); ++row) {
    const u64 largest = std::min(entries_[row].threshold, words);
    reach(entries_[row].algorithm, largest);
    if (const Algorithm* const lean = entries_[row].lean_at(largest)) reach(lean, largest);
  }
  for (const auto& [algorithm, largest] : reached) body(*algorithm, largest * word_bits);
}

template <class W>
void AlgorithmTable<W>::ensure_tables(TransformTables& tables, u64 bits) const {
  for_each_reached(
      bits, [&](const Algorithm& algorithm, u64 largest) { algorithm.ensure_tables(tables, largest); });
}

template <class W>
u64 AlgorithmTable<W>::table_bytes(u64 bits) const {
  u64 bytes = 0;
  for_each_reached(bits,
                   [&](const Algorithm& algorithm, u64 largest) { bytes += algorithm.table_bytes(largest); });
  return bytes;
}

std::span<const AlgorithmRow> default_swap_rows() {
  static constexpr AlgorithmRow rows[] = {{"C17", kLargestC17}, {"N64", kLargestN64}};
  return rows;
}

std::span<const AlgorithmRow> default_basic_rows() {
  switch (simd::active_target()) {
    case simd::Target::kScalar:
      return kScalarRows;
    case simd::Target::kAvx2:
      return kAvx2Rows;
    case simd::Target::kAvx512:
      return kAvx512Rows;
    case simd::Target::kAvx512Ifma:
      return kAvx512IfmaRows;
  }
  internal_error("default_basic_rows()", "Unknown target.");
}

std::vector<std::string> initialize_multiplication(AlgorithmRegistry&& registry) {
  if (detail::active_table<u32> != nullptr) internal_error("initialize_multiplication()", "Called twice.");
  mutable_registry() = std::move(registry);
  std::vector<std::string> warnings;
  initialize_table<u32>(warnings);
  initialize_table<u64>(warnings);
  return warnings;
}

const AlgorithmRegistry& algorithm_registry() { return mutable_registry(); }

void detail::no_active_table() {
  internal_error("basic_table()", "Multiplication has not been initialized.");
}

template <class W>
ScopedBasicTable<W>::ScopedBasicTable(AlgorithmTable<W> table)
    : table_(std::move(table)), before_(detail::active_table<W>) {
  detail::active_table<W> = &table_;
}

template <class W>
ScopedBasicTable<W>::ScopedBasicTable(std::span<const AlgorithmRow> rows)
    : ScopedBasicTable([&] {
        AlgorithmTable<W> table("Scoped");
        table.add_list(algorithm_registry(), rows);
        return table;
      }()) {}

template <class W>
ScopedBasicTable<W>::~ScopedBasicTable() {
  detail::active_table<W> = before_;
}

template class AlgorithmTable<u32>;
template class AlgorithmTable<u64>;
template class ScopedBasicTable<u32>;
template class ScopedBasicTable<u64>;

}  // namespace orl
