// What the programs of this folder share: the target by name, and large memory.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "memory/linear_buffer.h"
#include "simd/target.h"

namespace orl::bench {

inline void set_target(const std::string& name) {
  for (simd::Target target :
       {simd::Target::kScalar, simd::Target::kAvx2, simd::Target::kAvx512, simd::Target::kAvx512Ifma})
    if (name == simd::target_name(target)) return simd::set_active_target(target);
  std::fprintf(stderr, "unknown target %s\n", name.c_str());
  std::exit(1);
}

/// Bytes on a line of 64.
class Block {
 public:
  explicit Block(u64 bytes)
      : bytes_((bytes + 63) & ~u64{63}), block_(static_cast<u8*>(std::aligned_alloc(64, bytes_ + 64))) {
    if (block_ == nullptr) throw std::bad_alloc();
  }
  LinearHeapBuffer buffer() const { return {block_.get(), bytes_}; }

 private:
  struct Free {
    void operator()(u8* p) const { std::free(p); }
  };
  u64 bytes_;
  std::unique_ptr<u8[], Free> block_;
};

}  // namespace orl::bench
