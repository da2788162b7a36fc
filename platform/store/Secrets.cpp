#include "platform/store/Secrets.h"

#include <sodium.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <new>
#include <string_view>

namespace VELT::sharing {
namespace {

constexpr std::string_view kLinkIdCharacters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
constexpr std::size_t kLinkIdLength = 22;
constexpr unsigned long long kPasswordPasses = 2;
constexpr std::size_t kPasswordMemory = std::size_t{19} * 1024 * 1024;

bool SodiumReady() {
  static const bool ready = sodium_init() >= 0;
  return ready;
}

// Whether the system has the memory that hashing a password needs. libsodium maps it for each call.
bool HasPasswordMemory() {
  void* memory =
      mmap(nullptr, kPasswordMemory, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return memory != MAP_FAILED && munmap(memory, kPasswordMemory) == 0;
}

}  // namespace

std::string NewLinkId() {
  std::string id(kLinkIdLength, '\0');
  for (char& character : id) {
    character = kLinkIdCharacters[randombytes_uniform(kLinkIdCharacters.size())];
  }
  return id;
}

bool IsLinkId(const std::string& text) {
  return text.size() == kLinkIdLength &&
         text.find_first_not_of(kLinkIdCharacters) == std::string::npos;
}

std::string NewSessionId() {
  std::array<unsigned char, 32> bits{};
  randombytes_buf(bits.data(), bits.size());
  constexpr int kVariant = sodium_base64_VARIANT_URLSAFE_NO_PADDING;
  std::array<char, sodium_base64_ENCODED_LEN(bits.size(), kVariant)> text{};
  return sodium_bin2base64(text.data(), text.size(), bits.data(), bits.size(), kVariant);
}

std::string Digest(const std::string& text) {
  std::array<unsigned char, crypto_hash_sha256_BYTES> hash{};
  crypto_hash_sha256(hash.data(), reinterpret_cast<const unsigned char*>(text.data()), text.size());
  std::array<char, 2 * crypto_hash_sha256_BYTES + 1> digits{};
  return sodium_bin2hex(digits.data(), digits.size(), hash.data(), hash.size());
}

std::string HashPassword(const std::string& password) {
  std::array<char, crypto_pwhash_STRBYTES> hash{};
  if (!SodiumReady() || crypto_pwhash_str(hash.data(), password.data(), password.size(),
                                          kPasswordPasses, kPasswordMemory) != 0) {
    return {};
  }
  return hash.data();
}

bool MatchesPassword(const std::string& hash, const std::string& password) {
  if (!SodiumReady() || hash.size() >= crypto_pwhash_STRBYTES) return false;
  if (crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0) return true;
  // libsodium's result and errno are the same for a wrong password and for missing memory. The
  // latter must not count as a wrong guess.
  if (!HasPasswordMemory()) throw std::bad_alloc();
  return false;
}

}  // namespace VELT::sharing
