// Start-up, one action, end.
#pragma once

namespace orvane {

/// Exceptions, frameworks, allocators, multiplication; to be called once, before anything else.
void register_everything();

/// Runs the program up to the point where its status is known. The caller ends the process with orl::leave().
int run_program(int argc, char** argv);

}  // namespace orvane
