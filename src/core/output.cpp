#include "core/output.h"

#include <iostream>

namespace orl {
namespace {

Output& plain_output() {
  // Never destroyed: a thread may speak while the process ends.
  static Output* const plain = new Output;
  return *plain;
}

Output* g_output = nullptr;

}  // namespace

void Output::print(std::string_view text, char) { std::cout << text << std::flush; }

void Output::print_line(std::string_view text, char) { std::cout << text << std::endl; }

Output& output() { return g_output != nullptr ? *g_output : plain_output(); }

void set_output(Output* output) { g_output = output; }

void notice(std::string_view text, char colour) { output().print(text, colour); }

void notice_line(std::string_view text, char colour) { output().print_line(text, colour); }

void notice_value(std::string_view label, std::string_view value, char colour) {
  notice(label, 'w');
  notice(value, colour);
}

}  // namespace orl
