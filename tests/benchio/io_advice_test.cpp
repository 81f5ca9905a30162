#include "benchio/io_advice.h"

#include <gtest/gtest.h>

#include "benchio/io_benchmark.h"
#include "config/writer.h"
#include "core/exceptions.h"

namespace orvane {
namespace {

// One word of each advice; speeds of reading and writing are equal unless a row says otherwise.
TEST(IoAdvice, FollowsFromTheMeasurements) {
  struct Row {
    double ratio, write, read, faster_reads;
    char colour;
    const char* notes;  // the ends of lines that begin an advice
  };
  const Row rows[] = {
      {0.49, 0.3, 0.3, 1, 'R', "CPU performance.|double"},
      {0.5, 0.3, 0.3, 1, 'Y', "unable|double"},
      {0.99, 0.3, 0.3, 1, 'Y', "unable|double"},
      {1.0, 0.3, 0.3, 1, 'G', "barely|double"},
      {1.5, 0.3, 0.3, 1, 'T', ""},
      {2.99, 0.3, 0.3, 1, 'T', ""},
      {3.0, 0.3, 0.3, 1, 'B', "sufficient"},
      {2, 0.124, 0.9, 1, 'T', "too low|to increase the"},
      {2, 0.9, 0.124, 1, 'T', "too low|to increase the"},
      {2, 0.125, 0.9, 1, 'T', "somewhat low|to increase the"},
      {2, 0.2, 0.9, 1, 'T', "somewhat low|to increase the"},
      {2, 0.25, 0.9, 1, 'T', ""},
      {2, 0.6, 0.5, 1, 'T', ""},
      {2, 0.6, 0.51, 1, 'T', "very high|to decrease the"},
      {2, 0.3, 0.3, 2, 'T', ""},
      {2, 0.3, 0.3, 2.01, 'T', "significantly lower"},
      {0.1, 0.1, 0.1, 3, 'R', "CPU performance.|double|too low|to increase the|significantly lower"},
  };
  const std::string all[] = {
      "CPU performance.", "unable",          "barely",    "double",          "sufficient",         "too low",
      "somewhat low",     "to increase the", "very high", "to decrease the", "significantly lower"};
  for (const Row& row : rows) {
    const IoMeasurements measured{1e9, row.faster_reads * 1e9, row.write, row.read, 1e9, row.ratio * 1e9};
    EXPECT_EQ(ratio_colour(measured.ratio()), row.colour) << row.ratio;
    std::string text;
    for (const std::string& line : io_advice(measured)) text += line + "\n";
    for (const std::string& word : all) {
      const bool expected = ("|" + std::string(row.notes) + "|").find("|" + word + "|") != std::string::npos;
      EXPECT_EQ(text.find(word) != std::string::npos, expected)
          << row.ratio << " " << row.write << " " << word;
    }
  }
}

TEST(IoBenchmark, SettingsComeBackFromAFile) {
  BenchIoSettings settings, back;
  settings.memory_bytes = u64{64} << 20;
  settings.bytes_per_seek.set(65536);
  settings.raid.set_group({orl::R03::RaidType::raid3, {"/a", "/b"}});
  settings.json_results = true;
  back.from_object(settings.to_object());
  EXPECT_EQ(orl::to_string(back.to_object()), orl::to_string(settings.to_object()));
  EXPECT_EQ(settings.file_bytes(), u64{64} << 20);
  EXPECT_EQ(settings.refusal(), "");
  settings.memory_bytes = u64{1} << 20;
  EXPECT_NE(settings.refusal(), "");
  EXPECT_GT(settings.file_bytes(), 0u);
  orl::Object wrong;
  wrong.add_integer("Memory", -1);
  EXPECT_THROW(back.from_object(wrong), orl::Exception);
}

}  // namespace
}  // namespace orvane
