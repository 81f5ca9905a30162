// Work stealing by oneTBB.
#pragma once

#include <memory>

#include "threads/parallelizer.h"

namespace orl {

/// Own setting: the number of threads, 0 for as many as the library chooses. A thread that waits for its fork
/// runs other tasks meanwhile.
class Parallelizer_Tbb final : public Parallelizer {
 public:
  static constexpr const char* kName = "oneTBB Work-Stealing";

  Parallelizer_Tbb();
  ~Parallelizer_Tbb() override;

  void run_pair(ParallelTask& first, ParallelTask& second) override;
  void run_range(ParallelTask& task, u64 start, u64 end) override;
  void reserve() override;
  void reset() override;
  const char* key() const override { return "tbb"; }
  const char* name() const override { return kName; }
  u64 threads() const override { return tbb_threads_; }
  void print_menu_rows(SettingsMenu& menu) const override;
  void handle_menu_choice(u64 choice, SettingsMenu& menu) override;
  void write_settings(Object& object) const override;
  void read_object(const Object& object) override;

  /// Makes an arena of this many threads in place of the former one.
  void set_threads(u64 threads);

 private:
  struct Arena;

  u64 tbb_threads_;
  std::unique_ptr<Arena> arena_;
};

}  // namespace orl
