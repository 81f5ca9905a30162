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
thread_local Output* t_capture = nullptr;

}  // namespace

void Output::print(std::string_view text, char) { std::cout << text << std::flush; }

void Output::print_line(std::string_view text, char) { std::cout << text << std::endl; }

Output& output() {
  if (t_capture != nullptr) return *t_capture;
  return g_output != nullptr ? *g_output : plain_output();
}

void set_output(Output* output) { g_output = output; }

OutputCapture::OutputCapture() : before_(t_capture) { t_capture = this; }

OutputCapture::~OutputCapture() { t_capture = before_; }

void notice(std::string_view text, char colour) { output().print(text, colour); }

void notice_line(std::string_view text, char colour) { output().print_line(text, colour); }

void notice_value(std::string_view label, std::string_view value, char colour) {
  notice(label, 'w');
  notice(value, colour);
}

}  // namespace orl
