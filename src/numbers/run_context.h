// What every plan's run() is given beside its operands and its heap.
#pragma once

#include "multiply/algorithm.h"

namespace orl {

class StatusNode;

struct RunContext {
  ParallelContext parallel;
  const TransformTables& tables;  ///< made for the plan's Need::table_bits
  StatusNode& status;             ///< a branch that runs beside others passes silent_status()

  MultiplyContext multiply(LinearHeapBuffer scratch) const { return {parallel, tables, scratch}; }
  RunContext with_tds(u64 tds) const { return {parallel.with_tds(tds), tables, status}; }
  RunContext with_parallel(ParallelContext share) const { return {share, tables, status}; }
  RunContext with_status(StatusNode& node) const { return {parallel, tables, node}; }
};

/// The frame of a run that is not checkpointed: never loading, saves nothing. A long function is written in
/// stages over a frame, and this is the frame it gets in RAM.
struct NullStackFrame {
  bool loading() const { return false; }
  void checkpoint() {}
  template <class T>
  void assert_sL(const char*, const T&) {}
  template <class Object>
  void process_checkpointable(const char*, Object&) {}
};

}  // namespace orl
