// What every plan's run() is given beside its operands and its heap.
#pragma once

#include "multiply/algorithm.h"

namespace orl {

class StatusNode;

/// Passed by reference; a branch makes one of its own.
struct RunContext {
  ParallelContext parallel;
  const TransformTables& tables;  ///< made for the plan's Need::table_bits
  StatusNode& status;             ///< a branch that runs beside others passes silent_status()

  /// This context for a product with `scratch`; with fewer tasks, a share of them, or another status.
  MultiplyContext multiply(LinearHeapBuffer scratch) const { return {parallel, tables, scratch}; }
  RunContext with_tds(u64 tds) const { return {parallel.with_tds(tds), tables, status}; }
  RunContext with_parallel(ParallelContext share) const { return {share, tables, status}; }
  RunContext with_status(StatusNode& node) const { return {parallel, tables, node}; }
};

/// The frame of a run in RAM, which is not checkpointed: it runs every stage and saves nothing.
///
/// A long function enters a frame of its own and runs its stages over it. A stage names the numbers that are
/// alive behind it; a frame that resumes an earlier run skips a body whose numbers it can load instead. So
/// whatever a later stage reads is either an operand of the function, alive, or made again by that stage.
struct NullStackFrame {
  /// The frame of the function of that name, which is called next.
  NullStackFrame enter(const char*) { return {}; }
  /// A parameter of the function: a run that resumes must have been started with an equal one.
  template <class T>
  void assert_sL(const char*, const T&) {}
  template <class Body, class... Live>
  void stage(Body&& body, Live&...) {
    body();
  }
};

}  // namespace orl
