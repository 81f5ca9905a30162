// The user's answers to the prompts of a disk array.
#pragma once

namespace orl {

/// From now on the person at the terminal answers when a drive fails. Where standard input is no terminal nobody is waited
/// for, and at its end the program ends with status 1.
void install_fault_prompt();

}  // namespace orl
