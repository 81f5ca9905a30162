// The peer of bench/pi: Pi by the Chudnovsky series as a plain GMP program, one thread.
//
//   gmp_pi DIGITS [FILE]      prints seconds a stage; writes the digits to FILE when it is given
//
// Binary splitting on mpz, then mpf_div, mpf_sqrt_ui and mpf_get_str: what a user of GMP would write first.
#include <gmp.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

// Values of the series over (a, b]: P/Q is the sum, R the product that scales what follows.
struct Node {
  mpz_t P, Q, R;
  Node() { mpz_inits(P, Q, R, nullptr); }
  ~Node() { mpz_clears(P, Q, R, nullptr); }
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;
};

void split(Node& out, unsigned long a, unsigned long b) {
  if (b - a == 1) {
    mpz_set_ui(out.R, 6 * b - 5);
    mpz_mul_ui(out.R, out.R, 2 * b - 1);
    mpz_mul_ui(out.R, out.R, 6 * b - 1);
    mpz_set_ui(out.P, 545140134);
    mpz_mul_ui(out.P, out.P, b);
    mpz_add_ui(out.P, out.P, 13591409);
    mpz_mul(out.P, out.P, out.R);
    if (b & 1) mpz_neg(out.P, out.P);
    mpz_set_ui(out.Q, b);
    mpz_mul_ui(out.Q, out.Q, b);
    mpz_mul_ui(out.Q, out.Q, b);
    mpz_mul_ui(out.Q, out.Q, 10939058860032000UL);
    return;
  }
  const unsigned long m = (a + b) / 2;
  Node right;
  split(out, a, m);
  split(right, m, b);
  mpz_mul(out.P, out.P, right.Q);
  mpz_mul(right.P, right.P, out.R);
  mpz_add(out.P, out.P, right.P);
  mpz_mul(out.Q, out.Q, right.Q);
  mpz_mul(out.R, out.R, right.R);
}

double seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || std::atol(argv[1]) < 100) {
    std::fprintf(stderr, "usage: gmp_pi DIGITS [FILE]    (at least 100 digits)\n");
    return 1;
  }
  const unsigned long digits = std::strtoul(argv[1], nullptr, 10);
  const double start = seconds();
  const auto bits = static_cast<mp_bitcnt_t>(static_cast<double>(digits) * std::log2(10.0)) + 64;
  Node node;
  split(node, 0, static_cast<unsigned long>(static_cast<double>(digits) / 14.1816474627) + 2);
  const double series = seconds();

  // Pi = 426880 sqrt(10005) Q / (13591409 Q + P)
  mpf_t numerator, denominator;
  mpf_init2(numerator, bits);
  mpf_init2(denominator, bits);
  mpz_addmul_ui(node.P, node.Q, 13591409);
  mpz_mul_ui(node.Q, node.Q, 426880);
  mpf_set_z(numerator, node.Q);
  mpf_set_z(denominator, node.P);
  mpf_div(numerator, numerator, denominator);
  mpf_sqrt_ui(denominator, 10005);
  mpf_mul(numerator, numerator, denominator);
  const double finish = seconds();

  mp_exp_t exponent;
  char* text = mpf_get_str(nullptr, &exponent, 10, digits + 1, numerator);
  const double conversion = seconds();
  if (argc > 2) {
    std::FILE* file = std::fopen(argv[2], "wb");
    if (!file) {
      std::perror(argv[2]);
      return 1;
    }
    std::fprintf(file, "%c.%s", text[0], text + 1);
    std::fclose(file);
  }
  const double end = seconds();
  std::printf("series %.3f  division and root %.3f  conversion %.3f  writing %.3f  total %.3f seconds\n",
              series - start, finish - series, conversion - finish, end - conversion, end - start);
  std::free(text);
  mpf_clears(numerator, denominator, nullptr);
  return 0;
}
