// Constants with a class of their own: what they add to their rows of the catalogue.
#pragma once

#include "session/constant.h"

namespace orvane {

std::unique_ptr<Constant> make_sqrt();
std::unique_ptr<Constant> make_log();
std::unique_ptr<Constant> make_gamma();  ///< names its algorithm by its precision
std::unique_ptr<Constant> make_brent();
std::unique_ptr<Constant> make_custom();

}  // namespace orvane
