// What every measuring program shares: its heading, the refusal of a build with assertions, and the timing of
// a call beside its peer.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "core/types.h"

namespace orl::bench {

inline std::string cpu_name() {
  std::ifstream info("/proc/cpuinfo");
  for (std::string line; std::getline(info, line);)
    if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
  return "unknown CPU";
}

inline std::string commit() {
  std::string text;
  if (FILE* pipe = popen("git describe --always --dirty 2>/dev/null", "r")) {
    char line[128];
    if (std::fgets(line, sizeof line, pipe)) text = line;
    pclose(pipe);
  }
  text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
  return text.empty() ? "unknown commit" : text;
}

/// The first lines of a report. Ends the program in a build with assertions: its figures would mean nothing.
inline void heading(const char* program, const char* kernel) {
#ifndef NDEBUG
  std::fprintf(stderr, "%s: this build has assertions; measure the release preset.\n", program);
  std::exit(1);
#endif
  std::printf("%s\nCPU     %s\nkernel  %s\nbuild   release, g++ %s\nsource  %s\n\n", program,
              cpu_name().c_str(), kernel, __VERSION__, commit().c_str());
}

inline double now_ns() {
  using namespace std::chrono;
  return double(duration_cast<nanoseconds>(steady_clock::now().time_since_epoch()).count());
}

inline double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + std::ptrdiff_t(values.size() / 2), values.end());
  return values[values.size() / 2];
}

/// Times of one call, in ns.
struct Timing {
  double median = 0;
  double low = 0;     ///< fastest of the repetitions
  double spread = 0;  ///< (slowest - fastest) / median of the middle half
};
inline Timing timing_of(std::vector<double> ns) {
  std::sort(ns.begin(), ns.end());
  const std::size_t n = ns.size();
  const double mid = ns[n / 2];
  return {mid, ns[0], (ns[n - 1 - n / 4] - ns[n / 4]) / mid};
}

/// A call and its peer, run in turns, so that a noisy machine disturbs both; ratio is the median of peer /
/// call.
struct Comparison {
  Timing call, peer;
  double ratio = 0;
};
template <class Call, class Peer>
Comparison compare(Call&& call, Peer&& peer, double ns_a_run = 2e6, int repetitions = 15) {
  const auto time_of = [](auto&& f, u64 calls) {
    const double start = now_ns();
    for (u64 i = 0; i < calls; ++i) f();
    return (now_ns() - start) / double(calls);
  };
  const auto calls_for = [&](auto&& f) {
    f();
    u64 calls = 1;
    while (calls < (u64{1} << 30) && time_of(f, calls) * double(calls) < ns_a_run / 4) calls *= 2;
    return std::max<u64>(1, u64(ns_a_run / std::max(1.0, time_of(f, calls))));
  };
  const u64 calls = calls_for(call), peer_calls = calls_for(peer);
  std::vector<double> mine, theirs, ratios;
  for (int i = 0; i < repetitions; ++i) {
    mine.push_back(time_of(call, calls));
    theirs.push_back(time_of(peer, peer_calls));
    ratios.push_back(theirs.back() / mine.back());
  }
  return {timing_of(mine), timing_of(theirs), median(ratios)};
}

}  // namespace orl::bench
