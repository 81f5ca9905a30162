// Constants with a class of their own: what they add to their rows of the catalogue.
#pragma once

#include "session/constant.h"

namespace orvane {

/// Sqrt(n): n is no square, and below 2^64.
std::unique_ptr<Constant> make_sqrt();
/// Log(n), 2 <= n < 2^31. Its Machin-like formulas are made for its precision when they are first asked for.
std::unique_ptr<Constant> make_log();
/// The plan of what make_log gave, by the formula that its algorithm names.
std::unique_ptr<orl::ConstantPlan<Word>> plan_log_machin(const Constant& log, u64 precision_words, u64 tds);
/// Names its algorithm by its precision.
std::unique_ptr<Constant> make_gamma();
/// The Euler-Mascheroni constant with a parameter 2^k of its own, 1 <= k < 64.
std::unique_ptr<Constant> make_brent();
/// Named and defined by a file.
std::unique_ptr<Constant> make_custom();

}  // namespace orvane
