#include "benchio/io_advice.h"

#include <iterator>

namespace orvane {
namespace {

constexpr struct {
  double below;
  char colour;
  bool needs_bandwidth;
  const char* lines[3];
} kClasses[] = {
    {0.5,
     'R',
     true,
     {"  - The overall I/O bandwidth is very poor compared to the CPU performance.",
      "    Computations utilizing disk will be severely limited by disk access."}},
    {1.0,
     'Y',
     true,
     {"  - The overall I/O speed is unable to keep up with the CPU(s).",
      "    Computations utilizing disk will be limited by disk access."}},
    {1.5,
     'G',
     true,
     {"  - The overall I/O speed is barely able to keep up with the CPU(s).",
      "    For small computations, this is okay. But large computations that",
      "    use a lot of disk will still be very limited by disk access."}},
    {3.0, 'T', false, {}},
};
constexpr const char* kSufficient[] = {
    "  - This machine has sufficient disk bandwidth to handle any computation",
    "    without being significantly bottlenecked by disk access."};
constexpr const char* kBandwidth[] = {
    "    The best way to improve performance is to increase your disk bandwidth.",
    "    For best performance on large computations, the disk bandwidth should be",
    "    at least double the compute speed. (Ratio > 2.0)"};

// The last lines of all advice about pieces; `change` is what to do with the setting.
void add_setting(std::vector<std::string>& lines, const char* change) {
  lines.push_back("    The optimal ratio between sequential/non-sequential I/O is about 3 to 1.");
  lines.push_back(std::string("    It is recommended to ") + change +
                  " the \"Min I/O Size\" setting and re-run");
  lines.push_back("    this benchmark.");
}

void add_overall(std::vector<std::string>& lines, double ratio) {
  for (const auto& one : kClasses) {
    if (!(ratio < one.below)) continue;
    for (const char* line : one.lines)
      if (line) lines.push_back(line);
    if (one.needs_bandwidth) lines.insert(lines.end(), std::begin(kBandwidth), std::end(kBandwidth));
    return;
  }
  lines.insert(lines.end(), std::begin(kSufficient), std::end(kSufficient));
}

void add_strided(std::vector<std::string>& lines, double write, double read) {
  if (write < 0.125 || read < 0.125) {
    lines.push_back("  - The threshold non-sequential I/O bandwidth is too low.");
    lines.push_back("    This may severely degrade performance for large computations that");
    lines.push_back("    require a lot of disk space.");
    add_setting(lines, "increase");
  } else if (write < 0.25 || read < 0.25) {
    lines.push_back("  - The threshold non-sequential I/O bandwidth is somewhat low.");
    lines.push_back("    This may result in sub-optimal performance for large computations that");
    lines.push_back("    require a lot of disk space.");
    add_setting(lines, "increase");
  } else if (write > 0.5 && read > 0.5) {
    lines.push_back("  - Your threshold non-sequential I/O bandwidth is very high.");
    lines.push_back("    This may cause sub-optimal algorithm selection for large computations.");
    add_setting(lines, "decrease");
  }
}

}  // namespace

char ratio_colour(double ratio) {
  for (const auto& one : kClasses)
    if (ratio < one.below) return one.colour;
  return 'B';
}

std::vector<std::string> io_advice(const IoMeasurements& measured) {
  std::vector<std::string> lines;
  add_overall(lines, measured.ratio());
  add_strided(lines, measured.strided_write, measured.strided_read);
  if (measured.sequential_read > 2 * measured.sequential_write) {
    lines.push_back("  - Your write bandwidth is significantly lower than your read bandwidth.");
    lines.push_back("    It is recommended to examine your storage configuration if you are");
    lines.push_back("    expecting balanced read/write speeds.");
  }
  return lines;
}

}  // namespace orvane
