#include "machin/stored_formulas.h"

#include <array>

namespace orl {
namespace {

constexpr u64 kSets[][8] = {
    {8749, 4801, 449, 251},
    {244, 161, 127, 99},
    {97, 71, 55, 49},
    {19601, 8749, 4801, 1079, 351},
    {6049, 881, 485, 251, 244},
    {246401, 21295, 13311, 8749, 4801, 1574},
    {19601, 8449, 8191, 6049, 2001, 1457},
    {23718421, 11819521, 1419263, 672281, 388961, 87361, 74359, 57799},
    {1267111, 1202851, 456191, 246401, 209951, 62425, 46817, 21659},
};
constexpr std::span<const u64> row(u64 index, u64 primes) { return std::span(kSets[index]).first(primes); }
constexpr std::array kSets4{row(0, 4), row(1, 4), row(2, 4)};
constexpr std::array kSets5{row(3, 5), row(4, 5)};
constexpr std::array kSets6{row(5, 6), row(6, 6)};
constexpr std::array kSets8{row(7, 8), row(8, 8)};

}  // namespace

std::span<const StoredLogFormulas> stored_log_formulas() {
  static const std::array<StoredLogFormulas, 9> rows{{
      {2, {{{18, 26}, {-2, 4801}, {8, 8749}}, {{4, 6}, {2, 99}}}},
      {3, {{{228, 251}, {86, 449}, {-60, 4801}, {98, 8749}}, {{12, 11}, {4, 1249}, {2, 1351}}}},
      {5, {{{334, 251}, {126, 449}, {-88, 4801}, {144, 8749}}, {{8, 5}, {-2, 161}}}},
      {7,
       {{{404, 251}, {152, 449}, {-106, 4801}, {174, 8749}},
        {{124, 97}, {78, 127}, {56, 1079}, {28, 19601}}}},
      {10, {{{478, 251}, {180, 449}, {-126, 4801}, {206, 8749}}, {{46, 31}, {34, 49}, {20, 161}}}},
      {11, {{{48, 23}, {22, 65}, {-14, 485}}, {{62, 26}, {2, 197}, {-6, 4801}, {28, 8749}}}},
      {13, {{{28, 11}, {10, 1249}, {6, 1351}}, {{74, 29}, {30, 2001}, {-14, 8449}, {-22, 19601}}}},
      {17, {{{28, 10}, {12, 485}, {-2, 2177}}, {{98, 35}, {26, 577}, {-32, 3401}, {-16, 4999}}}},
      {19, {{{42, 17}, {18, 37}, {-16, 1025}}, {{116, 41}, {30, 244}, {2, 2431}, {-44, 4801}}}},
  }};
  return rows;
}

std::span<const std::span<const u64>> argument_sets(u64 primes) {
  switch (primes) {
    case 4:
      return kSets4;
    case 5:
      return kSets5;
    case 6:
      return kSets6;
    case 8:
      return kSets8;
    default:
      return {};
  }
}

}  // namespace orl
