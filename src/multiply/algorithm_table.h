// Which algorithm multiplies which size: one table for each word type, looked up by every product.
//
// Rows     (threshold in words, algorithm), thresholds strictly rising; the first row whose threshold is not
//          below the size of the product is taken. The size is the sum of the operand lengths after trimming.
// Windows  sqr_window and mul_window trim operand words that cannot reach the window. Carries from what was
//          trimmed are lost, so the lowest two words of a window with skip > 0 may be wrong.
// Lifetime initialize_multiplication() is called once, before any product; the tables do not change
//          afterwards. An algorithm that a list names but nobody registered is left out, with a warning.
// Threads  read-only while products run.
#pragma once

#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "core/types.h"
#include "core/uncopied.h"
#include "multiply/algorithm.h"
#include "multiply/basecase.h"

namespace orl {

/// The transforms of an algorithm for operands that lie on disks (transforms/common/far_transform.h).
class FarFamily;

/// The objects of one algorithm; null where the word type or the kind of memory has none.
struct AlgorithmInstances {
  const Algorithm* basic_u32 = nullptr;
  const Algorithm* basic_u64 = nullptr;
  const FarFamily* swap_u32 = nullptr;
  const FarFamily* swap_u64 = nullptr;

  /// The object for products in RAM.
  template <class W>
  const Algorithm* basic() const {
    if constexpr (sizeof(W) == 4)
      return basic_u32;
    else
      return basic_u64;
  }
  /// The object for products of numbers on disks.
  template <class W>
  const FarFamily* swap() const {
    if constexpr (sizeof(W) == 4)
      return swap_u32;
    else
      return swap_u64;
  }
};

/// All algorithms of the program by id, filled by one explicit call (register_multiplication). The objects it
/// points to are static.
class AlgorithmRegistry {
 public:
  /// Throws InvalidParametersException when the id is taken.
  void add(std::string_view id, const AlgorithmInstances& instances);
  /// Null when the id is unknown.
  const AlgorithmInstances* find(std::string_view id) const;
  const std::map<std::string, AlgorithmInstances, std::less<>>& all() const { return algorithms_; }

 private:
  std::map<std::string, AlgorithmInstances, std::less<>> algorithms_;
};

/// A row of a list that tables are built from.
struct AlgorithmRow {
  std::string_view id;
  u64 threshold_bits;
};

/// Whose shape a product takes.
enum class ShapeChoice : u8 {
  kRow,  ///< the row's algorithm's
  kLean  ///< that of the row's lean algorithm, where it has one: less memory, and rings
};

/// See the head of this file.
template <class W>
class AlgorithmTable {
 public:
  static constexpr u32 word_bits = 8 * sizeof(W);
  /// A row as it is looked up.
  struct Entry {
    u64 threshold;  ///< largest product in words
    const Algorithm* algorithm;
    /// Of the next row, when that makes wrapped products and this does not: what products take that lack the memory
    /// for `algorithm`, and those that gain more by a ring than `algorithm` is faster. Null: there is none.
    const Algorithm* lean = nullptr;

    /// `lean` for products of `words` words; null for small ones, which save less than its tables take.
    const Algorithm* lean_at(u64 words) const {
      return words * word_bits > kSmallestLeanBits ? lean : nullptr;
    }
  };
  static constexpr u64 kSmallestLeanBits = 221184;

  /// Without rows; `name` is for warnings.
  explicit AlgorithmTable(std::string name) : name_(std::move(name)) {}
  AlgorithmTable(AlgorithmTable&&) = default;
  AlgorithmTable& operator=(AlgorithmTable&&) = default;

  const std::string& name() const { return name_; }
  const std::vector<Entry>& entries() const { return entries_; }
  /// Largest product in words; 0 for a table without rows.
  u64 max_words() const { return entries_.empty() ? 0 : entries_.back().threshold; }

  /// Adds a row; a null algorithm is ignored. Throws StringException "Thresholds must be increasing." or
  /// "Thresholds is larger than maximum size.".
  void add(u64 threshold, const Algorithm* algorithm);
  /// Adds a row and keeps the object.
  void add(u64 threshold, std::unique_ptr<Algorithm> owned);
  /// Adds rows by id. Ids that are unknown or have no object for this word type are left out; returns a
  /// warning for each.
  std::vector<std::string> add_list(const AlgorithmRegistry& registry, std::span<const AlgorithmRow> rows);

  /// The algorithm of a product of `words` words. Throws LimitExceededException past the last row.
  const Algorithm& get_algorithm(u64 words) const;
  /// Its lean algorithm, or itself where it has none.
  const Algorithm& get_lean_algorithm(u64 words) const;

  /// Shape of a product of `words` words, built into `out`. `tables` may be null when only sizes are wanted.
  const Parameters& parameters_for(ParametersBox& out, const TransformTables* tables, u64 words, u64 tds,
                                   ShapeChoice choice = ShapeChoice::kRow) const;
  /// Bytes of a product of exactly `words` words.
  MultiplySizes sizes(u64 words, u64 tds) const;
  /// parameters_for() of the row where `transforms` of its transforms and its scratch fit into `bytes`, or else of
  /// its lean algorithm.
  const Parameters& parameters_within(u64 bytes, u64 transforms, ParametersBox& out,
                                      const TransformTables* tables, u64 words, u64 tds) const;
  /// Bytes that are enough for parameters_within() of any product of 1 to `words` words.
  u64 max_least_bytes(u64 words, u64 tds, u64 transforms) const;
  /// Bytes of the most demanding of all direct products, and squares, of 1 to `words` words. Shapes do not grow
  /// steadily, so a plan whose products may turn out shorter asks here. Cost: one step per shape, some microseconds.
  ProductSizes max_sizes(u64 words, u64 tds) const;
  /// Bytes of the most demanding of all bounded products, and squares, of 1 to `words` words, whose windows
  /// are `window` words or the whole product, whichever is less, or longer. By default whole products; 0 for
  /// results that lie over operands.
  ProductSizes max_bounded_sizes(u64 words, u64 tds, u64 window = ~u64{0}) const;
  /// Scratch of a truncating square or product at a precision of p words, whatever the operands, by
  /// sqr_bounded or mul_bounded.
  u64 sqr_cost(u64 p, u64 tds) const { return cost(p, tds).square_bytes; }
  u64 mul_cost(u64 p, u64 tds) const { return cost(p, tds).product_bytes; }

  /// T[0, 2 A.count) = A^2.
  void sqr(const MultiplyContext& ctx, W* T, Words<W> A) const { sqr_window(ctx, {T, 0, 2 * A.count}, A); }
  /// T[0, A.count + B.count) = A * B.
  void mul(const MultiplyContext& ctx, W* T, Words<W> A, Words<W> B) const {
    mul_window(ctx, {T, 0, A.count + B.count}, A, B);
  }
  /// T = its words of A^2, T.skip < T.len <= 2 A.count. T overlaps no operand. ctx.scratch holds
  /// max_sizes(2 A.count, tds).square_bytes.
  void sqr_window(const MultiplyContext& ctx, Window<W> T, Words<W> A) const {
    if (schoolbook(T, 2 * A.count)) return sqrB(T.T, A.ptr, A.count);
    sqr_trimmed(ctx, T, A);
  }
  /// T = its words of A * B, T.skip < T.len <= A.count + B.count, both counts at least 1. ctx.scratch holds
  /// max_sizes(A.count + B.count, tds).product_bytes.
  void mul_window(const MultiplyContext& ctx, Window<W> T, Words<W> A, Words<W> B) const {
    if (schoolbook(T, A.count + B.count)) return mulB(T.T, A.ptr, A.count, B.ptr, B.count);
    mul_trimmed(ctx, T, A, B);
  }

  /// sqr_window and mul_window in the memory at hand: made directly when ctx.scratch holds that, and
  /// otherwise by the bounded form of the row's algorithm, or of its lean one, which gives the same words. ctx.scratch holds at least
  /// max_bounded_sizes(A.count + B.count, tds, T.count()).
  void sqr_bounded(const MultiplyContext& ctx, Window<W> T, Words<W> A) const;
  void mul_bounded(const MultiplyContext& ctx, Window<W> T, Words<W> A, Words<W> B) const;

  /// Makes the tables of every algorithm that products of up to `bits` bits reach, each up to the largest
  /// product it gets; all ones means every row to its full size.
  void ensure_tables(TransformTables& tables, u64 bits) const;
  /// Bytes that ensure_tables cuts from an empty TransformTables.
  u64 table_bytes(u64 bits) const;

 private:
  bool schoolbook(const Window<W>& T, u64 words) const {
    return words <= schoolbook_words_ && T.skip == 0 && T.len == words;
  }
  void sqr_trimmed(const MultiplyContext& ctx, Window<W> T, Words<W> A) const;
  void mul_trimmed(const MultiplyContext& ctx, Window<W> T, Words<W> A, Words<W> B) const;
  ProductSizes cost(u64 p, u64 tds) const;
  /// The row that a product of `words` takes. Throws LimitExceededException under `function`.
  const Entry& find(u64 words, const char* function) const;
  template <class Body>
  void for_each_reached(u64 bits, Body&& body) const;
  template <class Body>
  void for_each_shape(u64 words, Body&& body) const;

  std::string name_;
  std::vector<Entry> entries_;
  std::vector<std::unique_ptr<Algorithm>> owned_;
  /// Whole products up to this length are schoolbook products of the first row, and are made without a look
  /// at the rows, which would cost as much as the product.
  u64 schoolbook_words_ = 0;
};

/// A product's operands after trimming: words [offset, offset + length) of each, and the window in their
/// product.
struct TrimmedProduct {
  u64 a_offset, a_length;
  u64 b_offset, b_length;
  u64 skip, len;

  /// What is left of the first operand.
  template <class W>
  Words<W> a(Words<W> A) const {
    return A.part(a_offset, a_length);
  }
  /// What is left of the second operand.
  template <class W>
  Words<W> b(Words<W> B) const {
    return B.part(b_offset, b_length);
  }
  /// The window, to T[0, len - skip).
  template <class W>
  Window<W> window(W* T) const {
    return {T, skip, len};
  }
};
/// Drops what cannot reach words [skip, len) of a product of AL by BL words, but for carries.
TrimmedProduct trim_product(u64 skip, u64 len, u64 AL, u64 BL);
/// trim_product() for a square; both operands of the result are the same words.
TrimmedProduct trim_square(u64 skip, u64 len, u64 L);

/// Takes the registered algorithms and builds the tables from the lists of the active target. Returns the
/// warnings of add_list.
std::vector<std::string> initialize_multiplication(AlgorithmRegistry&& registry);
/// What initialize_multiplication was given.
const AlgorithmRegistry& algorithm_registry();
/// The rows of the active target's list for products in RAM.
std::span<const AlgorithmRow> default_basic_rows();
/// The rows of the list for products of numbers on disks, which all targets share.
std::span<const AlgorithmRow> default_swap_rows();
namespace detail {
template <class W>
inline const AlgorithmTable<W>* active_table = nullptr;
[[noreturn]] void no_active_table();
}  // namespace detail

/// The table of all products in RAM. Internal error before initialize_multiplication.
template <class W>
inline const AlgorithmTable<W>& basic_table() {
  if (detail::active_table<W> == nullptr) detail::no_active_table();
  return *detail::active_table<W>;
}

/// Puts another table in place of basic_table<W>() for as long as it lives: tests set thresholds to their
/// extremes. Not while products run.
template <class W>
class ScopedBasicTable : Uncopied {
 public:
  /// Any table.
  explicit ScopedBasicTable(AlgorithmTable<W> table);
  /// A table built from registered algorithms.
  explicit ScopedBasicTable(std::span<const AlgorithmRow> rows);
  ScopedBasicTable(std::initializer_list<AlgorithmRow> rows)
      : ScopedBasicTable(std::span<const AlgorithmRow>(rows.begin(), rows.size())) {}
  ~ScopedBasicTable();

 private:
  AlgorithmTable<W> table_;
  const AlgorithmTable<W>* before_;
};

}  // namespace orl
