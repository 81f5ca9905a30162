// The stress tester's menu, where the machine decides what the screen shows; the pages have the rest.
#include "app/stress_menu.h"

#include <gtest/gtest.h>

#include "app/action_file.h"
#include "config/writer.h"
#include "support/child.h"
#include "support/files.h"
#include "system/topology.h"

namespace orvane::test {
namespace {

TEST(StressMenu, TogglesCores) {
  const std::string first = std::to_string(orl::topology().cores.front());
  const std::string total = std::to_string(orl::topology().cores.size());
  const std::string more = std::to_string(orl::topology().cores.back() + 1);
  const auto child =
      orl::test::run_child("1\n" + first + "\n" + more + "\n\n1\n" + first + "\n\n", stress_menu);
  EXPECT_EQ(child.status, 1) << "the input ends";
  std::string screen = child.output;
  const std::string label = "Logical Cores:          ",
                    fewer = std::to_string(orl::topology().cores.size() - 1);
  const std::vector<std::string> parts = {label + total + " of " + total,
                                          "Pin threads to the following cores in a round-robin fashion.\r\n",
                                          "  Core " + first,
                                          "Enabled\n",
                                          "Enter Core # to toggle it.  (ENTER alone returns.)\n",
                                          "  Core " + first,
                                          "Disabled\n",
                                          label + fewer + " of " + total,
                                          "  Core " + first,
                                          "Disabled\n",
                                          "  Core " + first,
                                          "Enabled\n",
                                          label + total + " of " + total};
  for (const std::string& part : parts) {
    const std::size_t at = screen.find(part);
    ASSERT_NE(at, std::string::npos) << "\"" << part << "\" is missing in the rest of\n" << child.output;
    screen.erase(0, at + part.size());
  }
}

// A core of another machine can be seen and taken out.
TEST(StressMenu, LoadsASavedFileWithACoreThatIsNotHere) {
  orl::test::TemporaryFolder folder;
  const u32 absent = orl::topology().cores.back() + 3;
  StressSettings settings;
  settings.allocate_locally = false;
  settings.cores = {absent, orl::topology().cores.front()};
  settings.total_memory = 87654321;
  settings.seconds = 0;
  settings.stop_on_error = false;
  settings.enable_only({"C17", "N32"});
  save_stress(folder.file("a.cfg"), settings);

  const auto child = orl::test::run_child("20\n" + folder.file("a") + "\n21\n" + folder.file("b") + "\n1\n" +
                                              std::to_string(absent) + "\n\n21\n" + folder.file("c") + "\n",
                                          stress_menu);
  EXPECT_EQ(child.status, 1) << "the input ends";
  const auto loaded = [&](const char* name) {
    StressSettings read;
    load_stress(folder.file(name), read);
    return read;
  };
  EXPECT_TRUE(orl::same_content(loaded("b.cfg").to_object(), settings.to_object())) << child.output;
  EXPECT_EQ(loaded("c.cfg").cores, std::vector<u32>{orl::topology().cores.front()}) << child.output;
}

}  // namespace
}  // namespace orvane::test
