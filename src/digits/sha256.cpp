#include "digits/sha256.h"

// SHA-256 comes from OpenSSL: a published function outside of what this program exists for.
#include <openssl/evp.h>

#include "core/exceptions.h"
#include "digits/digit_text.h"

namespace orl {

struct Sha256::State {
  struct Free {
    void operator()(EVP_MD_CTX* held) const { EVP_MD_CTX_free(held); }
  };
  std::unique_ptr<EVP_MD_CTX, Free> context{EVP_MD_CTX_new()};
};

namespace {

void check(bool ok) {
  if (!ok) throw AlgorithmFailedException("Sha256", "The library's SHA-256 failed.");
}

}  // namespace

Sha256::Sha256() : state_(std::make_unique<State>()) {
  check(state_->context && EVP_DigestInit_ex(state_->context.get(), EVP_sha256(), nullptr) == 1);
}
Sha256::Sha256(Sha256&&) noexcept = default;
Sha256::~Sha256() = default;

void Sha256::append(const void* bytes, u64 length) {
  check(EVP_DigestUpdate(state_->context.get(), bytes, length) == 1);
}

std::string Sha256::finish() {
  unsigned char hash[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  check(EVP_DigestFinal_ex(state_->context.get(), hash, &size) == 1);
  std::string text;
  for (unsigned int i = 0; i < size; i++) {
    text.push_back(digit_character(hash[i] >> 4));
    text.push_back(digit_character(hash[i] & 15));
  }
  return text;
}

std::string sha256(std::string_view text) {
  Sha256 hash;
  hash.append(text.data(), text.size());
  return hash.finish();
}

}  // namespace orl
