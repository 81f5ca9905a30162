// The generator of Machin-like formulas for Log(n), as a tool of its own.
#pragma once

#include "app/options.h"

namespace orvane {

/// Asks for n and the decimal digits, then prints both formulas. Returns the status: 1 for an n or a count of
/// digits that has no formula, which is told.
int log_formula_menu();

/// Prints the formulas that `line` asks for, as the menu does. Throws InvalidParametersException where its
/// argument is no whole number.
int run_log_formula(const LogFormulaLine& line);

}  // namespace orvane
