// The digit viewer: a finished digit file, text or compressed, of any size, through a window of fixed size.
//
// Memory   one block of kViewerWindowBytes while a file is open, whatever the file's size.
// Faults   whatever a reader or a writer throws is printed, and the menu comes up again.
// Files    nothing that exists is written over; what a failed pass leaves has no finished name, but for whole
//          batches of a set of very many files, which are told.
#pragma once

#include "core/types.h"

namespace orvane {

using orl::u64;

/// Digits and the pages that they come from and go to.
inline constexpr u64 kViewerWindowBytes = u64{20} << 20;

/// Asks for files and shows the menu of each until the user leaves; end of input ends the program with
/// status 1. Returns 1 when anything that was asked for failed, which a script can tell then.
int Menu_DigitViewer();

}  // namespace orvane
