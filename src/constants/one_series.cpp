#include "constants/one_series.body.h"

namespace orl {
namespace {

TermSeries zeta3_wedeniwski() {
  return {.name = "Zeta3_Wedeniwski",
          .P = {.polynomial = {126392, 412708, 531578, 336367, 104000, 12463}, .negative = true},
          .Q = {24, {{3, 1}, {3, 2}, {4, 1, 3}, {4, 3, 3}}},
          .R = {1, {{1, 0, 5}, {2, -1, 3}}},
          .alternating = true,
          .outer = {.P = 1, .Q = 12463, .D = 10368}};
}

TermSeries zeta3_amdeberhan_zeilberger() {
  return {.name = "Zeta3_AZ1",
          .P = {.polynomial = {205, 250, 77}, .negative = true},
          .Q = {32, {{2, 1, 5}}},
          .R = {1, {{1, 0, 5}}},
          .alternating = true,
          .outer = {.P = 1, .Q = 77, .D = 64}};
}

TermSeries zeta3_zuniga() {
  return {.name = "Zeta3_Zuniga",
          .P = {.polynomial = {1565994397644288, 10506477648460032, 31567339140195744, 56019281176488240,
                               65180430489299744, 52160137207884216, 29262452925092202, 11495362203169095,
                               3094818610007883, 543035311757517, 55800350430619, 2539221463380},
                .negative = true},
          .Q = {270,
                {{9, 1},
                 {9, 2},
                 {9, 4},
                 {9, 5},
                 {9, 7},
                 {9, 8},
                 {10, 1},
                 {10, 3},
                 {10, 7},
                 {10, 9},
                 {12, 1},
                 {12, 5},
                 {12, 7},
                 {12, 11}}},
          .R = {1, {{1, 0, 5}, {2, -1, 3}, {3, -2}, {3, -1}, {4, -3}, {4, -1}, {6, -5}, {6, -1}}},
          .alternating = true,
          .outer = {.P = 1, .Q = 2539221463380, .D = u64{1031443875} << 11}};
}

TermSeries catalan_pilehrood_short() {
  return {.name = "Catalan_Pilehrood1",
          .P = {.times_R = false, .polynomial = {580, -184, 15}},
          .Q = {9, {{6, -5, 2}, {6, -1, 2}}},
          .R = {32, {{1, 0, 3}, {2, -1}}},
          .outer = {.P = 1, .D = 2}};
}

TermSeries catalan_pilehrood_long() {
  return {.name = "Catalan_Pilehrood",
          .P = {.times_R = false, .polynomial = {419840, -915456, 782848, -332800, 73256, -7800, 315}},
          .Q = {1, {{8, -7, 2}, {8, -5, 2}, {8, -3, 2}, {8, -1, 2}}},
          .R = {32, {{1, 0, 3}, {2, -1}, {4, -1, 2}, {4, -3, 2}}},
          .alternating = true,
          .outer = {.P = 1, .D = 2}};
}

TermSeries catalan_guillera() {
  return {.name = "Catalan_Guillera",
          .P = {.polynomial = {3, 2}, .negative = true},
          .Q = {1, {{2, 1, 3}}},
          .R = {1, {{1, 0, 3}}},
          .alternating = true,
          .outer = {.P = 1, .Q = 2, .D = 2}};
}

TermSeries catalan_lupas() {
  return {.name = "Catalan_Lupas",
          .P = {.polynomial = {40, 56, 19}, .negative = true},
          .Q = {1, {{4, 1, 2}, {4, 3, 2}}},
          .R = {32, {{1, 0, 3}, {2, -1}}},
          .alternating = true,
          .outer = {.P = 1, .Q = 19, .D = 18}};
}

TermSeries catalan_huvent() {
  const std::vector<LinearFactor> squares = {{12, -11, 2}, {12, -7, 2}, {12, -5, 2}, {12, -1, 2}, {6, -5, 2},
                                             {6, -1, 2},   {4, -3, 2},  {4, -1, 2},  {2, -1, 2}};
  return {
      .name = "Catalan_Huvent",
      .P = {.times_R = false,
            .polynomial = {4636372233093120, -36460906766401536, 131163267677552640, -286233737803333632,
                           423616921183715328, -450199528221966336, 354798988975079424, -211084730625687552,
                           95578743840491520, -32949411911451648, 8587109802340224, -1665883801261440,
                           234249888490160, -22851844289280, 1435314833408, -50367648600, 698013775},
            .negative = true},
      .Q = {64, squares},
      .R = {1, squares},
      .alternating = true,
      .outer = {.P = 1, .D = 6}};
}

TermSeries catalan_zuniga() {
  return {.name = "Catalan_Zuniga",
          .P = {.polynomial = {43203456, 166411584, 260619984, 211938912, 94165776, 21620948, 1999553},
                .negative = true},
          .Q = {5, {{10, 1}, {10, 3}, {10, 7}, {10, 9}, {12, 1}, {12, 5}, {12, 7}, {12, 11}}},
          .R = {128, {{1, 0, 3}, {2, -1}, {3, -2}, {3, -1}, {6, -5}, {6, -1}}},
          .alternating = true,
          .outer = {.P = 1, .Q = 1999553, .D = 2182950}};
}

TermSeries log2_zuniga() {
  return {.name = "Log2_Zuniga",
          .P = {.polynomial = {1794, 1497}},
          .Q = {216, {{6, 1}, {6, 5}}},
          .R = {1, {{1, 0}, {2, -1}}},
          .outer = {.P = 1, .Q = 1497, .D = 2160}};
}

}  // namespace

OneSeriesRow one_series_row(OneSeries which) {
  switch (which) {
    case OneSeries::kZeta3Wedeniwski:
      return {"Zeta(3) - Wedeniwski (1998):", zeta3_wedeniwski()};
    case OneSeries::kZeta3AmdeberhanZeilberger:
      return {"Zeta(3) - Amdeberhan-Zeilberger (1997):", zeta3_amdeberhan_zeilberger()};
    case OneSeries::kZeta3Zuniga:
      return {"Zeta(3) - Zuniga (2023):", zeta3_zuniga()};
    case OneSeries::kCatalanPilehroodShort:
      return {"Catalan - Pilehrood (2010-short):", catalan_pilehrood_short()};
    case OneSeries::kCatalanPilehroodLong:
      return {"Catalan - Pilehrood (2010-long):", catalan_pilehrood_long()};
    case OneSeries::kCatalanGuillera:
      return {"Catalan - Guillera (2008):", catalan_guillera()};
    case OneSeries::kCatalanLupas:
      return {"Catalan - Lupas (2000):", catalan_lupas()};
    case OneSeries::kCatalanHuvent:
      return {"Catalan - Huvent (2006):", catalan_huvent()};
    case OneSeries::kCatalanZuniga:
      return {"Catalan - Zuniga (2023):", catalan_zuniga()};
    case OneSeries::kLog2Zuniga:
      return {"Log(2) - Zuniga (2023):", log2_zuniga()};
  }
  internal_error("one_series_row()", "No such series.");
}

#define ORVANE_INSTANTIATE(W)                                                                 \
  template ConstantPlanPointer<RamStore<W>> make_one_series<RamStore<W>>(OneSeries, s32, u64, \
                                                                         const RamStore<W>::Budget&);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
