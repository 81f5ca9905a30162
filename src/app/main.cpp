#include "app/program.h"
#include "frame/ending.h"

int main(int argc, char** argv) { orl::leave(orvane::run_program(argc, argv)); }
