#include "system/environment.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "core/settings.h"
#include "support/fake_file_calls.h"
#include "support/files.h"
#include "system/fake_machine.h"
#include "system/places.h"

namespace orl::test {
namespace {

using Ids = std::vector<u32>;

// Four logical cores on two physical ones, numbered as most systems do.
Topology two_cores_with_threads() {
  Topology t;
  t.cores = {0, 1, 2, 3};
  t.thread_ranks = {0, 0, 1, 1};
  t.nodes = {{0, {0, 2}, 1}, {3, {1, 3}, 1}};
  return t;
}

class EnvironmentFile : public testing::Test {
 protected:
  void SetUp() override { settings().colors_enabled = false; }
  Environment load(const Topology& topology) {
    testing::internal::CaptureStdout();
    const Environment environment = load_environment(path_, topology);
    screen_ = testing::internal::GetCapturedStdout();
    return environment;
  }
  bool shows(const std::string& text) const { return screen_.find(text) != screen_.npos; }
  // The generated text with a part replaced.
  std::string changed(const std::string& from, const std::string& to) {
    std::string text = environment_text(topology_);
    const std::size_t at = text.find(from);
    EXPECT_NE(at, text.npos) << from;
    return text.replace(at, from.size(), to);
  }
  void expect_fault(const std::string& message) {
    EXPECT_EQ(load(topology_).static_pin_order, (Ids{0, 1, 2, 3})) << message;
    EXPECT_TRUE(shows(message)) << screen_;
    EXPECT_TRUE(shows("Please fix or delete \"" + path_ + "\"")) << screen_;
    EXPECT_TRUE(shows("Falling back to default settings...\n")) << screen_;
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.file("environment.cfg");
  Topology topology_ = two_cores_with_threads();
  std::string screen_;
};

TEST(DefaultEnvironment, PinsPhysicalCoresBeforeTheirSecondThreads) {
  Topology t = two_cores_with_threads();
  EXPECT_EQ(default_environment(t).static_pin_order, (Ids{0, 1, 2, 3}));
  t.thread_ranks = {0, 1, 0, 1};
  EXPECT_EQ(default_environment(t).static_pin_order, (Ids{0, 2, 1, 3}));
}

TEST_F(EnvironmentFile, IsGeneratedThenRead) {
  EXPECT_EQ(load(topology_).static_pin_order, (Ids{0, 1, 2, 3}));
  EXPECT_TRUE(shows("Loading Environment Configuration...\n"));
  EXPECT_TRUE(shows("No configuration found. Generating default file...\n"));
  EXPECT_TRUE(shows("Loading configuration file...\n"));
  EXPECT_EQ(folder_.names(), std::vector<std::string>{"environment.cfg"});
  const std::string text = read_file(path_);
  EXPECT_EQ(text.rfind("//\r\n//  Orvane Environment Configuration File\r\n//\r\n", 0), 0u);
  for (const char* comment : {"//  Auto-Detected Hardware Topology\r\n", "//  Static-Pin Order\r\n",
                              "//  Used by: BBP Digit Extractor\r\n",
                              "//  Pin threads to the following cores in a round-robin fashion.\r\n"})
    EXPECT_NE(text.find(comment), text.npos) << comment;
  load(topology_);
  EXPECT_FALSE(shows("Generating"));
  EXPECT_FALSE(shows("Falling back"));
  EXPECT_EQ(read_file(path_), text);
}

TEST_F(EnvironmentFile, GivesItsOwnOrder) {
  write_file(path_,
             "{ DetectedHardware : { LogicalCores : 4 ThreadNodes : [ { Node : 0 Cores : [ 0 2 ] }"
             " { Node : 3 Cores : [ 1 3 ] } ] } StaticPinOrder : [ 3 1 3 ] }");
  EXPECT_EQ(load(topology_).static_pin_order, (Ids{3, 1, 3}));
}

TEST_F(EnvironmentFile, OfOtherHardwareIsNotUsedAndNotTouched) {
  const auto expect_mismatch = [&](const Topology& now) {
    const std::string before = read_file(path_);
    EXPECT_EQ(load(now).static_pin_order, default_environment(now).static_pin_order);
    EXPECT_TRUE(
        shows("Unable to load configuration file. The \"DetectedHardware\" section does not\n"
              "match the current hardware configuration.\n"
              "Falling back to default settings...\n"))
        << screen_;
    EXPECT_EQ(read_file(path_), before);
  };
  load(topology_);
  Topology fewer = topology_;
  fewer.cores = {0, 1, 2};
  fewer.thread_ranks = {0, 0, 1};
  fewer.nodes[1].cores = {1};
  expect_mismatch(fewer);
  Topology renamed = topology_;
  renamed.nodes[1].id = 1;
  expect_mismatch(renamed);
  write_file(path_, "{ StaticPinOrder : [ 0 ] }");
  expect_mismatch(topology_);
}

TEST_F(EnvironmentFile, ThatCannotBeUsedIsNamed) {
  const std::string text = environment_text(topology_);
  const std::pair<std::string, std::string> faults[] = {
      {"{\n  DetectedHardware : {,\n", "Line 2: "},
      {"", "Unexpected end of stream."},
      {"[ ]", "Expected Object, got Array."},
      {changed("StaticPinOrder", "StaticPinOder"), "Unknown key: StaticPinOder"},
      {changed("StaticPinOrder : [", "StaticPinOrder : [ 4"), "There is no core 4."},
      {changed("StaticPinOrder : [", "StaticPinOrder : [ -4294967296"), "There is no core -4294967296."},
      {changed("StaticPinOrder : [", "StaticPinOrder : [ \"0\""), "Expected Integer, got String."},
      {text.substr(0, text.find("StaticPinOrder")) + "StaticPinOrder : [ ] }",
       "The list of cores cannot be empty."},
      {text.substr(0, text.find("//  Static-Pin")) + "}", "StaticPinOrder"}};
  for (const auto& [file, message] : faults) {
    write_file(path_, file);
    expect_fault(message);
  }
}

TEST_F(EnvironmentFile, GetsItsFolderOrHasNoPlace) {
  path_ = folder_.file("not/there/environment.cfg");
  EXPECT_EQ(load(topology_).static_pin_order, (Ids{0, 1, 2, 3}));
  EXPECT_EQ(read_file(path_), environment_text(topology_));
  path_.clear();
  EXPECT_EQ(load(topology_).static_pin_order, (Ids{0, 1, 2, 3}));
  EXPECT_TRUE(shows("no home folder")) << screen_;
}

// No user, not even root, can make a file there.
TEST_F(EnvironmentFile, InAFolderThatCannotBeWrittenIsNoFailure) {
  path_ = "/proc/environment.cfg";
  EXPECT_EQ(load(topology_).static_pin_order, (Ids{0, 1, 2, 3}));
  EXPECT_TRUE(shows("Unable to write \"/proc/environment.cfg\": ")) << screen_;
  EXPECT_FALSE(shows("Loading configuration file..."));
}

TEST_F(EnvironmentFile, ThatGetsNoNameLeavesNothingBehind) {
  FakeFileCalls calls;
  calls.fail(FileCall::kRename, EACCES);
  EXPECT_EQ(load(topology_).static_pin_order, (Ids{0, 1, 2, 3}));
  EXPECT_TRUE(shows("Unable to write \"" + path_ + "\": Permission denied. Using default settings."))
      << screen_;
  EXPECT_TRUE(folder_.names().empty());
}

TEST_F(EnvironmentFile, ThatIsAFolderIsNoFailure) {
  std::filesystem::create_directory(path_);
  expect_fault("");
}

// What a reader sees while others generate is either nothing or the whole file.
TEST_F(EnvironmentFile, IsNeverSeenInPart) {
  testing::internal::CaptureStdout();
  std::atomic<bool> done{false};
  std::atomic<int> seen{0}, damaged{0};
  std::thread reader([&] {
    while (!done) {
      const std::string text = read_file(path_);
      if (text.empty()) continue;
      seen++;
      damaged += text != environment_text(topology_);
    }
  });
  for (int i = 0; i < 5000 && seen < 20; i++) {
    load_environment(path_, topology_);
    std::filesystem::remove(path_);
  }
  done = true;
  reader.join();
  testing::internal::GetCapturedStdout();
  EXPECT_GT(seen, 0);
  EXPECT_EQ(damaged, 0);
}

TEST(Environment, KeepsToTheCoresThatTheProcessMayUse) {
  settings().colors_enabled = false;
  testing::internal::CaptureStdout();
  EXPECT_EQ(on_usable_cores({{0, 2, 1, 3}}, {0, 1, 2, 3, 4}).static_pin_order, (Ids{0, 2, 1, 3}));
  EXPECT_EQ(on_usable_cores({{0, 2}}, {5}).static_pin_order, (Ids{0, 2}));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  testing::internal::CaptureStdout();
  EXPECT_EQ(on_usable_cores({{0, 2, 1, 3}}, {1, 2}).static_pin_order, (Ids{2, 1}));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "This process may not use all cores. Threads are not pinned to: 0 3\n");
}

// A row: what there is below the root, and where the settings of a program there are looked for.
TEST(SettingsPlaces, DependOnWhereTheProgramLies) {
  const std::string cfg = "environment.cfg";
  const auto path = [&](const FakeMachine& machine, const char* folder, const char* xdg, const char* home) {
    const std::string found =
        settings_places(machine.root() + folder, machine.root(), xdg, home).path_of(cfg);
    return found.starts_with(machine.root()) ? found.substr(machine.root().size()) : found;
  };
  FakeMachine machine;
  machine.put("opt/orvane/orvane", "").put("home/bin/orvane", "").put("usr/bin/orvane", "");
  machine.put("usr/share/orvane/Digits/Pi.txt", "3.1");
  const std::string home = machine.root() + "home", xdg = machine.root() + "xdg";
  EXPECT_EQ(path(machine, "opt/orvane/", xdg.c_str(), home.c_str()), "opt/orvane/" + cfg);
  EXPECT_EQ(path(machine, "home/bin/", nullptr, home.c_str()), "home/bin/" + cfg)
      << "a bin that is no prefix's";
  EXPECT_EQ(path(machine, "usr/bin/", xdg.c_str(), home.c_str()), "xdg/orvane/" + cfg);
  EXPECT_EQ(path(machine, "usr/bin/", nullptr, home.c_str()), "home/.config/orvane/" + cfg);
  EXPECT_EQ(path(machine, "usr/bin/", "relative", home.c_str()), "home/.config/orvane/" + cfg);
  EXPECT_EQ(path(machine, "usr/bin/", "", ""), "");
  machine.put("etc/orvane/" + cfg, "");
  EXPECT_EQ(path(machine, "usr/bin/", nullptr, nullptr), "etc/orvane/" + cfg);
  EXPECT_EQ(path(machine, "usr/bin/", nullptr, home.c_str()), "etc/orvane/" + cfg);
  EXPECT_EQ(path(machine, "opt/orvane/", nullptr, home.c_str()), "opt/orvane/" + cfg);
  machine.put("home/.config/orvane/" + cfg, "");
  EXPECT_EQ(path(machine, "usr/bin/", nullptr, home.c_str()), "home/.config/orvane/" + cfg);
}

TEST(Environment, DefaultsHoldUntilItIsSet) {
  EXPECT_EQ(static_pin_order(), default_environment(topology()).static_pin_order);
  set_environment({{0, 0}});
  EXPECT_EQ(static_pin_order(), (Ids{0, 0}));
}

}  // namespace
}  // namespace orl::test
