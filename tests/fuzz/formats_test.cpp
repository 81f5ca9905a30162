// Some seconds of fuzzing with a driver of our own: seeds from the program's writers, changed at random. Long
// runs use the same entries through libFuzzer (fuzz_main.cpp).
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <sstream>

#include "fuzz/formats.h"
#include "support/random_words.h"

namespace orvane::fuzz {
namespace {

using orl::test::Random;

// As long as this and as many files as these.
constexpr auto kTime = std::chrono::milliseconds(1000);
constexpr u64 kFiles = 100;

// What matters to one format or another.
const std::vector<std::string>& tokens() {
  static const std::vector<std::string> list = [] {
    std::istringstream text(
        "{|}|[|]|\"|\\|:|//|/"
        "*|\r\n|\t|.|-|0|18446744073709551615|-9223372036854775808|999999999999999999999999|,|"
        "EndHeader|Blocksize:\t|TotalDigits:\t0|BlockID:\t1|Base:\t16|true|\xff|1.3|----\r\n");
    std::vector<std::string> parts;
    for (std::string part; std::getline(text, part, '|');) parts.push_back(part);
    return parts;
  }();
  return list;
}

std::string changed(std::string text, const std::vector<std::string>& seeds, Random& random) {
  const auto place = [&] { return random.below(text.size() + 1); };
  for (u64 changes = 1 + random.below(4); changes > 0; changes--) {
    const u64 at = place();
    switch (random.below(7)) {
      case 0:
        if (at < text.size()) text[at] = static_cast<char>(text[at] ^ (1 << random.below(8)));
        break;
      case 1:
        if (at < text.size()) text[at] = static_cast<char>(random.next());
        break;
      case 2:
        text.insert(at, tokens()[random.below(tokens().size())]);
        break;
      case 3:
        text.erase(at, 1 + random.below(20));
        break;
      case 4:  // a stretch once more
        text.insert(at, text.substr(place(), random.below(40)));
        break;
      case 5: {  // the end of another file
        const std::string& other = seeds[random.below(seeds.size())];
        text.resize(at);
        text += other.substr(random.below(other.size() + 1));
        break;
      }
      default:
        text.insert(at, std::string(1 + random.below(600), random.coin() ? '[' : '1'));
    }
  }
  return text;
}

class Fuzz : public testing::TestWithParam<u64> {};

TEST_P(Fuzz, FindsNothing) {
  const Format& format = formats()[GetParam()];
  const std::vector<std::string> seeds = format.seeds();
  const auto read = [&](const std::string& text) {
    format.read(reinterpret_cast<const u8*>(text.data()), text.size());
  };
  for (const std::string& seed : seeds) read(seed);
  Random random;
  // Printed beforehand: an entry ends the process where it finds something.
  std::printf("%s: %s\n", format.name, random.replay().c_str());
  std::fflush(stdout);
  // Half of the changes go on from what an earlier one left.
  std::vector<std::string> pool = seeds;
  u64 files = 0;
  const auto end = std::chrono::steady_clock::now() + kTime;
  for (; files < kFiles || std::chrono::steady_clock::now() < end; files++) {
    const std::string text = changed(pool[random.below(pool.size())], seeds, random);
    read(text);
    if (text.size() > 4000 || random.coin()) continue;
    if (pool.size() < 64)
      pool.push_back(text);
    else
      pool[seeds.size() + random.below(pool.size() - seeds.size())] = text;
  }
  RecordProperty("files", static_cast<int>(files));
}

INSTANTIATE_TEST_SUITE_P(Formats, Fuzz, testing::Range<u64>(0, 4), [](const auto& index) {
  std::string name = formats()[index.param].name;
  std::erase(name, '-');
  return name;
});

}  // namespace
}  // namespace orvane::fuzz
