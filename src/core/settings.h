// Process-wide settings, filled by the global options at start-up and only read afterwards.
#pragma once

#include <string>

#include "core/types.h"

namespace orl {

/// Global options of the command line; set at start-up, read by everybody.
struct Settings {
  s32 pause_level = 0;         ///< when to ask for ENTER at the end; see leave() in ending.h
  bool pause_on_fatal = true;  ///< fatal_exit() asks for ENTER
  bool pause_given = false;    ///< the line says when to ask for ENTER: that holds without a terminal too
  s32 thread_priority =
      -1;  ///< 0 leaves scheduling alone, below 0 lowest, above 0 highest real-time priority
  bool colors_enabled = true;  ///< false: no escape sequence is written
  bool print_pii = false;      ///< reports may show what identifies the machine
  bool skip_warnings = false;  ///< the processor check does not wait for ENTER
  bool quiet = false;          ///< what a start says is left out unless something is missing
  std::string exe_path;        ///< full path of the running file
  std::string exe_dir;         ///< exe_path cut after its last separator, which is kept
};

/// The one record. Change it only while a single thread runs.
Settings& settings();

}  // namespace orl
