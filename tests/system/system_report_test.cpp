#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "simd/target.h"
#include "system/fake_machine.h"
#include "system/machine.h"
#include "system/smbios.h"

namespace orl::test {
namespace {

// A structure of the firmware's table: `fields` by offset into a formatted area of `length` bytes.
struct Field {
  std::size_t at, bytes;
  u64 value;
};
std::string structure(u8 type, u8 length, const std::vector<Field>& fields, const std::string& texts) {
  std::string area(length, '\0');
  area[0] = static_cast<char>(type);
  area[1] = static_cast<char>(length);
  for (const Field& field : fields)
    for (std::size_t i = 0; i < field.bytes; i++)
      area[field.at + i] = static_cast<char>(field.value >> (8 * i));
  return area + (texts.empty() ? std::string(2, '\0') : texts + '\0');
}
std::string texts(const std::vector<std::string>& all) {
  std::string joined;
  for (const std::string& text : all) joined += text + '\0';
  return joined;
}
std::string module(u64 megabytes, const std::vector<Field>& more = {}) {
  std::vector<Field> fields = {{0x0c, 2, megabytes}, {0x10, 1, 1}, {0x12, 1, 0x22}, {0x15, 2, 5600},
                               {0x17, 1, 2},         {0x1a, 1, 3}, {0x20, 2, 4800}};
  fields.insert(fields.end(), more.begin(), more.end());
  return structure(17, 0x5c, fields, texts({"DIMM_A1", "Maker", "PART-1 "}));
}
const std::string kEnd = structure(127, 4, {}, "");

TEST(MemoryModules, AreReadWithTheirTexts) {
  const auto modules =
      parse_memory_modules(structure(0, 24, {}, texts({"x"})) + module(16384) + kEnd + module(1));
  ASSERT_EQ(modules.size(), 1u);
  EXPECT_EQ(modules[0].bytes, u64{16} << 30);
  EXPECT_EQ(modules[0].megatransfers, 4800u);
  EXPECT_EQ(modules[0].type, "DDR5");
  EXPECT_EQ(modules[0].locator, "DIMM_A1");
  EXPECT_EQ(modules[0].manufacturer, "Maker");
  EXPECT_EQ(modules[0].part, "PART-1");
}

TEST(MemoryModules, ReadEveryFormOfSizeAndSpeed) {
  const std::string table = module(0) + module(0xffff) + module(0x8200) +
                            module(0x7fff, {{0x1c, 4, 131072}}) + module(64, {{0x20, 2, 0}}) +
                            module(64, {{0x20, 2, 0xffff}, {0x58, 4, 70000}}) +
                            structure(17, 0x15, {{0x0c, 2, 512}, {0x12, 1, 0x07}}, "") + kEnd;
  const auto modules = parse_memory_modules(table);
  ASSERT_EQ(modules.size(), 5u);  // an empty slot and an unknown size are none
  EXPECT_EQ(modules[0].bytes, u64{0x200} << 10);
  EXPECT_EQ(modules[1].bytes, u64{128} << 30);
  EXPECT_EQ(modules[2].megatransfers, 5600u);
  EXPECT_EQ(modules[3].megatransfers, 70000u);
  EXPECT_EQ(modules[4].megatransfers, 0u);  // from before there were speeds
  EXPECT_EQ(modules[4].type, "RAM");
  EXPECT_EQ(modules[4].locator, "");
}

TEST(MemoryModules, SurviveDamage) {
  const std::string table = module(1024) + module(2048) + kEnd;
  for (std::size_t cut = 0; cut <= table.size(); cut++)
    EXPECT_LE(parse_memory_modules(std::string(table, 0, cut)).size(), 2u);
  EXPECT_EQ(parse_memory_modules(table.substr(0, module(1024).size() + 30)).size(), 1u);
  std::mt19937 random(20261121);
  for (int i = 0; i < 3000; i++) {
    std::string damaged = table;
    for (int flips = 0; flips < 4; flips++) damaged[random() % damaged.size()] = static_cast<char>(random());
    for (const MemoryModule& m : parse_memory_modules(damaged))
      for (const char c : m.locator + m.manufacturer + m.part)
        ASSERT_TRUE(c >= ' ' && c <= '~') << "round " << i;
  }
  EXPECT_EQ(parse_memory_modules(module(64, {{0x10, 1, 9}}))[0].locator, "");
}

std::string value(const std::vector<ReportSection>& report, const std::string& title,
                  const std::string& label) {
  for (const ReportSection& section : report)
    for (const auto& [name, text] : section.rows)
      if (section.title == title && name == label) return text;
  ADD_FAILURE() << "no row " << title << " " << label;
  return {};
}

Topology small_topology() {
  Topology t;
  t.cores = {2, 3, 4, 5};
  t.thread_ranks = {0, 0, 1, 1};
  t.nodes = {{0, {2, 3, 4, 5}, 0}, {1, {}, 0}};
  t.physical_cores = 2;
  return t;
}

class SystemReport : public testing::Test {
 protected:
  std::string read(const std::string& title, const std::string& label, bool identifying = false,
                   double tsc_hz = 0) {
    return value(read_system_report(machine_.root(), small_topology(), identifying, tsc_hz), title, label);
  }
  FakeMachine machine_;
};

TEST_F(SystemReport, DescribesTheMachine) {
  const std::string board = "sys/devices/virtual/dmi/id/";
  machine_.put("etc/os-release", "NAME='Some'\nPRETTY_NAME=\"Some \\\"Linux\\\" 12\"\n")
      .put("proc/sys/kernel/osrelease", "6.1.0\n")
      .put("proc/cpuinfo", "processor\t: 0\nmodel name\t: A  Processor   CPU @ 2.50GHz\n")
      .put("proc/meminfo", "MemTotal:  16000000 kB\nMemAvailable: 5 kB\n")
      .put(board + "board_vendor", "Maker\n")
      .put(board + "board_name", "X1\x01\xc3\n")
      .put(board + "board_serial", "S-77\n")
      .put("sys/firmware/dmi/tables/DMI", module(8192) + module(8192) + kEnd);
  EXPECT_EQ(read("Operating System:", ""), "Some \"Linux\" 12, Linux 6.1.0 (x86-64)");
  EXPECT_EQ(read("Processor(s):", "Name:"), "A Processor CPU @ 2.50GHz");
  EXPECT_EQ(read("Processor(s):", "Logical Cores:"), "4");
  EXPECT_EQ(read("Processor(s):", "Physical Cores:"), "2");
  EXPECT_EQ(read("Processor(s):", "Sockets:"), "1");
  EXPECT_EQ(read("Processor(s):", "NUMA Nodes:"), "2");
  EXPECT_EQ(read("Processor(s):", "Base Frequency:", false, 1e9), "2.500 GHz");
  EXPECT_EQ(read("Motherboard:", "Manufacturer:"), "Maker");
  EXPECT_EQ(read("Motherboard:", "Model:"), "X1??");
  EXPECT_EQ(read("Motherboard:", "Version:"), "Unknown");
  EXPECT_EQ(read("Motherboard:", "Serial Number:"),
            "Suppressed - Personally identifiable information is opt-in only.");
  EXPECT_EQ(read("Motherboard:", "Serial Number:", true), "S-77");
  EXPECT_EQ(read("Memory:", "Usable Memory:"), "16,384,000,000 (15.3 GiB)");
  EXPECT_EQ(read("Memory:", "Total Memory:"), "17,179,869,184 (16.0 GiB)");
  EXPECT_EQ(read("Memory:", "DIMM:"), "8.00 GiB DDR5 4800 MT/s, DIMM_A1, Maker, PART-1");
  machine_.put("sys/devices/system/cpu/cpu2/cpufreq/base_frequency", "2300000\n");
  EXPECT_EQ(read("Processor(s):", "Base Frequency:"), "2.300 GHz");
}

TEST_F(SystemReport, FillsGapsFromOtherSources) {
  machine_.put("usr/lib/os-release", "NAME=Other\n")
      .put("proc/meminfo", "MemTotal: 1000 kB\n")
      .put("sys/devices/virtual/dmi/id/sys_vendor", "Cloud\n")
      .put("sys/devices/virtual/dmi/id/product_name", "VM\n")
      .put("sys/devices/system/memory/block_size_bytes", "8000000\n")
      .put("sys/devices/system/memory/memory0/online", "1\n")
      .put("sys/devices/system/memory/memory3/online", "1\n")
      .put("sys/devices/system/memory/memory4/online", "0\n");
  EXPECT_EQ(read("Operating System:", "").rfind("Other, Linux", 0), 0u);
  EXPECT_EQ(read("Processor(s):", "Base Frequency:", false, 2.25e9), "2.250 GHz");
  EXPECT_EQ(read("Motherboard:", "Manufacturer:"), "Cloud");
  EXPECT_EQ(read("Motherboard:", "Model:"), "VM");
  EXPECT_EQ(read("Motherboard:", "Serial Number:", true), "Not Available");
  EXPECT_EQ(read("Memory:", "Total Memory:"), "268,435,456 (256 MiB)");
  EXPECT_EQ(read("Memory:", "DIMM:"), "Not Available");
}

TEST_F(SystemReport, OfNothingIsUnknown) {
  for (const char* label : {"Name:", "Base Frequency:"}) EXPECT_EQ(read("Processor(s):", label), "Unknown");
  for (const char* label : {"Manufacturer:", "Model:"}) EXPECT_EQ(read("Motherboard:", label), "Unknown");
  for (const char* label : {"Usable Memory:", "Total Memory:"}) EXPECT_EQ(read("Memory:", label), "Unknown");
}

TEST(HardwareSections, DescribeCachesNodesPagesAndClocks) {
  FakeMachine machine;
  const std::string cache = "sys/devices/system/cpu/cpu2/cache/index0/", pages = "sys/kernel/mm/hugepages/";
  machine.put(cache + "level", "1\n")
      .put(cache + "type", "Data\n")
      .put(cache + "size", "48K\n")
      .put(cache + "ways_of_associativity", "12\n")
      .put(cache + "coherency_line_size", "64\n")
      .put(cache + "shared_cpu_list", "2,4\n")
      .put("sys/kernel/mm/transparent_hugepage/enabled", "always [madvise] never\n")
      .put(pages + "hugepages-1048576kB/nr_hugepages", "0\n")
      .put(pages + "hugepages-2048kB/nr_hugepages", "12\n")
      .put(pages + "hugepages-2048kB/free_hugepages", "7\n")
      .put(pages + "odd/nr_hugepages", "1\n")
      .put("sys/devices/system/clocksource/clocksource0/current_clocksource", "hpet\n");
  const auto sections = read_hardware_sections(machine.root(), small_topology());
  EXPECT_EQ(value(sections, "Caches of Core 2:", "L1 Data:"),
            "49,152 (48.0 KiB), 12-way, 64 B lines, cores 2,4");
  EXPECT_EQ(value(sections, "NUMA Nodes:", "Node 0:"), "cores 2-5, memory 0 (0 bytes)");
  EXPECT_EQ(value(sections, "NUMA Nodes:", "Node 1:"), "cores none, memory 0 (0 bytes)");
  EXPECT_EQ(value(sections, "Memory Pages:", "Transparent Huge Pages:"), "madvise");
  EXPECT_EQ(value(sections, "Memory Pages:", "Pages of 2048 KiB:"), "12 reserved, 7 free");
  EXPECT_EQ(value(sections, "Memory Pages:", "Pages of 1048576 KiB:"), "0 reserved, 0 free");
  EXPECT_EQ(value(sections, "Clocks:", "Clock Source:"), "hpet");
  EXPECT_EQ(value(sections, "Clocks:", "Available Sources:"), "Unknown");
}

TEST(HardwareSections, OfNothingAreWhole) {
  FakeMachine machine;
  const auto sections = read_hardware_sections(machine.root(), small_topology());
  EXPECT_EQ(value(sections, "Caches of Core 2:", ""), "Unknown");
  EXPECT_EQ(value(sections, "Memory Pages:", "Transparent Huge Pages:"), "Not Available");
}

// The compiler's own macros in this file, which the same build compiles.
TEST(CompilationSections, AgreeWithThisBuild) {
  const auto sections = compilation_sections();
  EXPECT_NE(value(sections, "Compiler:", "Name:").find(__VERSION__), std::string::npos);
#ifdef NDEBUG
  EXPECT_EQ(value(sections, "Compiler:", "Assertions:"), "Off");
#else
  EXPECT_EQ(value(sections, "Compiler:", "Assertions:"), "On");
#endif
  EXPECT_NE(value(sections, "Compiler:", "Flags:").find("-ffp-contract=off"), std::string::npos);
  EXPECT_EQ(value(sections, "Instruction Targets:", "Active:"), simd::target_name(simd::active_target()));
  EXPECT_EQ(value(sections, "Libraries:", "Loaded:").find('/'), std::string::npos);
}

TEST(Machine, NoticesWhoTracesIt) {
  ASSERT_FALSE(debugger_is_present());
  const pid_t child = fork();
  if (child == 0) {
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    _exit(debugger_is_present() ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

}  // namespace
}  // namespace orl::test
