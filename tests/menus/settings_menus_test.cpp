#include <gtest/gtest.h>

#include "memory/allocator_kinds.h"
#include "memory/fake_memory_calls.h"
#include "memory/interleave_allocator.h"
#include "memory/node_list.h"
#include "menus/console_settings_menu.h"
#include "menus/parallelism_menu.h"
#include "support/screen.h"
#include "system/limits.h"
#include "threads/registered.h"

namespace orl {
namespace {

using test::FakeMemoryCalls;
using test::fill_registries;
using test::screen_of;

/// Runs the menu with `answers` typed and returns what it printed.
std::string menu_output(Parallelism& settings, const std::string& answers) {
  return screen_of(answers, [&] { run_parallelism_menu(settings); });
}

TEST(ParallelismMenu, ChangesWhatItShows) {
  fill_registries();
  Parallelism settings;
  settings.set_framework("pushpool");
  std::string shown = menu_output(settings, "4\n70000\n5\n3\n1000\n0\n");
  EXPECT_EQ(settings.framework().to_string(settings.tds()),
            "Push Pool  ->  1000 / 65536  (randomization off)");
  EXPECT_NE(shown.find("   4    Worker Threads:"), std::string::npos);
  EXPECT_NE(shown.find("65,536"), std::string::npos);
  EXPECT_NE(shown.find("Unlimited"), std::string::npos);
  EXPECT_NE(shown.find("This is known as \"over-decomposition\"."), std::string::npos);

  shown = menu_output(settings, "2\n2\n4\n0\n");
  EXPECT_EQ(settings.framework().to_string(settings.tds()),
            "C++ std::async()  ->  1000 / ?  (async | deferred)");
  EXPECT_NE(shown.find("std::launch::async | std::launch::deferred"), std::string::npos);
  menu_output(settings, "1\n0\n");
  EXPECT_EQ(settings.tds(), default_task_decomposition(processor_count()));
  EXPECT_EQ(settings.framework().key(), default_framework_key(processor_count()));
}

TEST(ParallelismMenu, ShowsTheRowsOfEachFramework) {
  fill_registries();
  const std::string cores = std::to_string(processor_count());
  const std::pair<const char*, std::string> rows[] = {
      {"none", ""},
      {"spawn", ""},
      {"cppasync", "   4    Launch Policy:          std::launch::async\n"},
      {"pushpool",
       "   4    Worker Threads:         Unlimited\n"
       "   5    Thread Randomization:   Enabled\n"},
      {"tbb", "   4    TBB Threads:            " + cores + "\n"}};
  for (const auto& [key, own_rows] : rows) {
    Parallelism settings;
    settings.set_framework(key);
    settings.set_tds(1234);
    std::string framework_row = "   2    Framework:";
    framework_row.resize(32, ' ');
    EXPECT_EQ(menu_output(settings, "0\n"),
              "\nMulti-Threading Settings:\n\n   0    Return\n"
              "   1    Restore defaults for " +
                  cores + " logical cores.\n" + framework_row + settings.framework().name() +
                  "\n   3    Task Decomposition:     1,234\n" + own_rows + "\nEnter # to change option:\n");
  }
  Parallelism settings;
  settings.set_framework("tbb");
  const std::string shown = menu_output(settings, "4\n70000\n3\n0\n65537\n7\n0\n");
  EXPECT_NE(shown.find("Threads: "), std::string::npos);
  EXPECT_EQ(settings.framework().to_string(settings.tds()), "oneTBB Work-Stealing  ->  7 / 65536");
}

TEST(NodesMenu, AreTypedNodeByNode) {
  FakeMemoryCalls machine({0, 1, 2});
  std::vector<u32> nodes;
  ConsoleSettingsMenu menu;
  EXPECT_EQ(screen_of("2\n7\nx\n0\n\n", [&] { nodes = ask_nodes(menu); }),
            "\n\nEnter NUMA node #'s one-by-one. Enter nothing to stop.\n"
            "node: node: There is no NUMA node \"7\" on this machine.\n"
            "node: There is no NUMA node \"x\" on this machine.\n"
            "node: node: ");
  EXPECT_EQ(nodes, (std::vector<u32>{2, 0}));
  screen_of("\n", [&] { nodes = ask_nodes(menu); });
  EXPECT_EQ(nodes, (std::vector<u32>{0, 1, 2})) << "none typed: all of them";
}

TEST(AllocatorRows, ChangesWhatItShows) {
  FakeMemoryCalls machine({0, 1});
  ConsoleSettingsMenu menu;
  InterleaveAllocator allocator;
  const auto rows = [&] { return screen_of("", [&] { allocator.print_menu_rows(menu); }); };
  const std::string note =
      "       mbind() may increase the quality of the interleaving. But it may\n"
      "       also cause spurious memory allocation failures.\n"
      "\n"
      "        (This allocator is useful only when there are multiple NUMA nodes.)\n";
  EXPECT_EQ(rows(),
            "   3    NUMA nodes:             0, 1\n"
            "   4    Page Mapping:           Hashed\n"
            "   5    Lock Pages in Memory:   Disabled\n"
            "   6    Attempt mbind():        Yes\n" +
                note);
  screen_of("1\n\n", [&] {
    for (const u64 choice : {3, 4, 5, 5, 6, 9}) allocator.handle_menu_choice(choice, menu);
  });
  EXPECT_EQ(rows(),
            "   3    NUMA nodes:             1\n"
            "   4    Page Mapping:           Round-Robin\n"
            "   5    Lock Pages in Memory:   Forced\n"
            "   6    Attempt mbind():        No\n" +
                note);
  EXPECT_EQ(allocator.to_string(), "Node Interleaving  (nodes: 1; round-robin; lock pages: forced)");
  const auto libnuma = libnuma_allocator().create();
  EXPECT_EQ(screen_of("", [&] { libnuma->print_menu_rows(menu); }),
            "   3    NUMA nodes:             0, 1\n"
            "\n"
            "        (This allocator is useful only when there are multiple NUMA nodes.)\n");
}

}  // namespace
}  // namespace orl
