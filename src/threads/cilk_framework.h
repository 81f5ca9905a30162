// Work stealing by the Cilk Plus runtime. Part of the build only where that library was found.
#pragma once

#include "threads/parallelizer.h"

namespace orl {

/// Own setting: the number of workers, which the runtime takes at reserve().
class Parallelizer_Cilk final : public Parallelizer {
 public:
  Parallelizer_Cilk();

  void run_pair(ParallelTask& first, ParallelTask& second) override;
  void run_range(ParallelTask& task, u64 start, u64 end) override;
  void reserve() override;
  const char* key() const override { return "cilk"; }
  const char* name() const override { return "Cilk Plus Work-Stealing"; }
  u64 threads() const override { return cilk_threads_; }
  void print_menu_rows(SettingsMenu& menu) const override;
  void handle_menu_choice(u64 choice, SettingsMenu& menu) override;
  void write_settings(Object& object) const override;
  void read_object(const Object& object) override;

 private:
  u64 cilk_threads_;
};

}  // namespace orl
