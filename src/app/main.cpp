#include "app/program.h"
#include "core/ending.h"

int main(int argc, char** argv) { orl::leave(orvane::run_program(argc, argv)); }
