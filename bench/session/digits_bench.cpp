// Digits from words to files and back.
//
//   digits_bench [folder] [digits ...]     working folder; 10,000,000 digits by default
//
// First the kernels, on digits that stay in the second-level cache: ns per digit beside a copy of as many
// bytes. Then the stages of a run, on one task and on two: milliseconds, beside a plain program that writes
// (and flushes) or reads as many bytes in pieces of 4 MiB.
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <random>

#include "core/status.h"
#include "digits/digit_kernels.h"
#include "digits/digit_text.h"
#include "digits/digit_words.h"
#include "session/digit_output.h"
#include "simd/target.h"
#include "support/measure.h"
#include "threads/frameworks.h"
#include "words/hash.h"

namespace {

using namespace orl;

std::vector<u64> random_words(u32 radix, u64 count) {
  std::mt19937_64 random(1);
  std::vector<u64> words(count);
  for (u64& word : words) word = radix == 10 ? random() % (largest_word(10) + 1) : random();
  return words;
}

void require(bool right, const char* what) {
  if (right) return;
  std::fprintf(stderr, "digits_bench: %s\n", what);
  std::exit(1);
}

class Kernels {
 public:
  explicit Kernels(u32 radix)
      : radix_(radix), words_(random_words(radix, 8192)), digits_(words_.size() * digits_per_word(radix)) {}

  void run() {
    std::vector<u8> copy(digits_.size());
    std::vector<u64> packed(words_.size());
    std::vector<char> text(digits_.size()), characters(digits_.size());
    unpack_words(radix_, digits_.data(), words_.data(), 1, words_.size());
    digits_to_text(characters.data(), digits_.data(), digits_.size());
    u64 counts[16] = {};
    volatile u64 sink = 0;
    const auto row = [&](const char* name, auto&& call) {
      const auto peer = [&] { std::memcpy(copy.data(), text.data(), copy.size()); };
      const bench::Comparison c = bench::compare(call, peer);
      const double digits = static_cast<double>(digits_.size());
      std::printf("%2u  %-18s %7.4f %5.1f%%  %7.4f\n", radix_, name, c.call.median / digits,
                  100 * c.call.spread, c.peer.median / digits);
    };
    row("words to digits",
        [&] { unpack_words(radix_, digits_.data(), words_.data() + words_.size() - 1, -1, words_.size()); });
    row("digits to words", [&] { sink = pack_words(radix_, packed.data(), digits_.data(), packed.size()); });
    row("counts", [&] { digits::digit_kernels().count(digits_.data(), digits_.size(), radix_, counts); });
    row("hash", [&] { sink = hash_digits(radix_, digits_.data(), digits_.size()); });
    row("digits to text", [&] { digits_to_text(text.data(), digits_.data(), digits_.size()); });
    row("text to digits", [&] { sink = text_to_digits(digits_.data(), text.data(), text.size(), radix_); });
    row("text to statistics", [&] {
      DigitStats stats(radix_);
      text_to_digits(digits_.data(), characters.data(), characters.size(), radix_);
      stats.append(digits_.data(), digits_.size());
      sink = stats.hash;
    });
    row("SHA-256 of text", [&] { DigitHasher(1).append(digits_.data(), digits_.size()); });
    (void)sink;
  }

 private:
  u32 radix_;
  std::vector<u64> words_;
  std::vector<u8> digits_;
};

class Stages {
 public:
  Stages(std::string folder, u64 digits)
      : folder_(std::move(folder)),
        digits_(digits),
        words_(random_words(10, (digits + 18) / 19)),
        window_(16 << 20),
        memory_(std::aligned_alloc(4096, window_)) {
    std::memset(memory_, 1, window_);
  }
  ~Stages() { std::free(memory_); }

  void run(const char* framework, u64 tds) {
    const auto parallelizer = create_framework(framework);
    parallelizer->reserve();
    orl::EventLog events;
    const orvane::OutputContext context{{*parallelizer, tds}, silent_status(), events, {memory_, window_}};
    const orvane::DigitWords number{10, 3, words_.data(), words_.size()};
    const auto stage = [&](const char* name, u64 digits_per_file, u64 bytes) {
      const orvane::OutputTarget target{"bench", "digits", folder_, digits_per_file};
      orvane::OutputResult result;
      const auto write = [&] { result = orvane::write_digits(context, number, digits_, target); };
      row((std::string(name) + " out").c_str(), tds, write, [&] { write_plainly(bytes); });
      row((std::string(name) + " back").c_str(), tds, [&] { orvane::read_check(context, result); },
          [&] { read_plainly(); });
      for (u64 id = 0; digits_per_file != 0 && id * digits_per_file < digits_; id++)
        unlink((result.path.substr(0, result.path.size() - 5) + std::to_string(id) + ".ovd").c_str());
      unlink(result.path.c_str());
    };
    row(
        "no file", tds, [&] { orvane::process_digits(context, number, digits_); }, [] {});
    stage("text", 0, digits_);
    stage("one .ovd", ~u64{0}, words_.size() * 8);
    stage("many .ovd", 1000000, words_.size() * 8);
    unlink(plain().c_str());
    parallelizer->reset();
  }

 private:
  template <class Call, class Peer>
  void row(const char* name, u64 tds, Call&& call, Peer&& peer) {
    const bench::Comparison c = bench::compare(call, peer, 2e7, 9);
    std::printf("%12llu  %-15s %4llu %9.2f %9.2f %5.0f%%  %9.2f %7.2f\n",
                static_cast<unsigned long long>(digits_), name, static_cast<unsigned long long>(tds),
                c.call.median * 1e-6, c.call.low * 1e-6, 100 * c.call.spread, c.peer.median * 1e-6, c.ratio);
    std::fflush(stdout);
  }

  std::string plain() const { return folder_ + "/digits_bench.bin"; }
  static constexpr u64 kPiece = 4 << 20;

  void write_plainly(u64 bytes) {
    const int file = open(plain().c_str(), O_RDWR | O_CREAT | O_TRUNC | O_DIRECT, 0600);
    require(file >= 0, "cannot create a file");
    for (u64 done = 0; done < bytes; done += kPiece) {
      const u64 piece = std::min(kPiece, (bytes - done + 4095) / 4096 * 4096);
      require(write(file, memory_, piece) == static_cast<ssize_t>(piece), "cannot write");
    }
    require(fsync(file) == 0 && close(file) == 0, "cannot flush");
  }
  void read_plainly() {
    const int file = open(plain().c_str(), O_RDONLY | O_DIRECT);
    while (read(file, memory_, kPiece) > 0) {
    }
    close(file);
  }

  std::string folder_;
  u64 digits_;
  std::vector<u64> words_;
  u64 window_;
  void* memory_;
};

}  // namespace

int main(int argc, char** argv) {
  bench::heading("digits_bench", simd::target_name(simd::active_target()));
  register_frameworks();
  std::string folder = ".";
  std::vector<u64> sizes;
  for (int i = 1; i < argc; i++) {
    const u64 digits = std::strtoull(argv[i], nullptr, 10);
    if (digits != 0)
      sizes.push_back(digits);
    else
      folder = argv[i];
  }
  if (sizes.empty()) sizes.push_back(10000000);
  std::printf("radix kernel        ns/digit spread   copy\n");
  for (const u32 radix : {10u, 16u}) Kernels(radix).run();
  std::printf("\n      digits  stage          tasks        ms   fastest spread   plain ms   ratio\n");
  for (const u64 digits : sizes) {
    Stages stages(folder, digits);
    stages.run("none", 1);
    stages.run("pushpool", 2);
  }
}
