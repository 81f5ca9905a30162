// The peer of the constants: a constant by Arb, from start to written digits.
//
//   arb_constants CONSTANT DIGITS FILE
//
// CONSTANT is pi, e, sqrt:2, log:N, zeta3, catalan, lemniscate or gamma. One thread.
#include <arb.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

bool compute(const std::string& name, arb_t x, slong bits) {
  if (name == "pi") {
    arb_const_pi(x, bits);
  } else if (name == "e") {
    arb_const_e(x, bits);
  } else if (name == "sqrt:2") {
    arb_sqrt_ui(x, 2, bits);
  } else if (name == "log:2") {
    arb_const_log2(x, bits);
  } else if (name.rfind("log:", 0) == 0) {
    arb_log_ui(x, std::strtoul(name.c_str() + 4, nullptr, 10), bits);
  } else if (name == "zeta3") {
    arb_const_apery(x, bits);
  } else if (name == "catalan") {
    arb_const_catalan(x, bits);
  } else if (name == "gamma") {
    arb_const_euler(x, bits);
  } else if (name == "lemniscate") {  // 2 Pi / AGM(1, sqrt(2))
    arb_t pi, one;
    arb_init(pi);
    arb_init(one);
    arb_sqrt_ui(x, 2, bits);
    arb_one(one);
    arb_agm(x, x, one, bits);
    arb_const_pi(pi, bits);
    arb_mul_2exp_si(pi, pi, 1);
    arb_div(x, pi, x, bits);
    arb_clear(one);
    arb_clear(pi);
  } else {
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: arb_constants CONSTANT DIGITS FILE\n", stderr);
    return 1;
  }
  const slong digits = std::strtol(argv[2], nullptr, 10);
  const slong bits = static_cast<slong>(static_cast<double>(digits) * 3.3219280948873626) + 64;
  arb_t x;
  arb_init(x);
  if (!compute(argv[1], x, bits)) {
    std::fprintf(stderr, "arb_constants: unknown constant %s\n", argv[1]);
    return 1;
  }
  char* text = arb_get_str(x, digits + 1, ARB_STR_NO_RADIUS);
  std::FILE* file = std::fopen(argv[3], "w");
  if (!file || std::fputs(text, file) < 0 || std::fclose(file) != 0) {
    std::perror(argv[3]);
    return 1;
  }
  flint_free(text);
  arb_clear(x);
  return 0;
}
