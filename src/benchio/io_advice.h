// What the measurements of a disk array mean, and what to do about them.
#pragma once

#include <string>
#include <vector>

#include "core/types.h"

namespace orvane {

/// What was measured. Speeds in bytes per second.
struct IoMeasurements {
  double sequential_write = 0, sequential_read = 0;
  double strided_write = 0, strided_read = 0;  ///< by pieces of Bytes/Seek, as parts of the sequential speeds
  double computation = 0, disk = 0;            ///< while both were at work
  double ratio() const { return disk / computation; }
};

/// The colour of a ratio of disk speed to computing speed: 'R' below 0.5, 'Y' below 1, 'G' below 1.5, 'T' below 3, 'B'
/// from there on.
char ratio_colour(double ratio);

/// The lines of the notes, in the order in which they are printed.
std::vector<std::string> io_advice(const IoMeasurements& measured);

}  // namespace orvane
