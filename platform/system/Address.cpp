#include "veltsys/Address.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace VELT {
namespace {

std::string AddressText(int family, const void* address) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(family, address, text.data(), text.size());
  return text.data();
}

}  // namespace

std::string SourceKey(const std::string& address) {
  in6_addr parsed{};
  const std::string no_zone = address.substr(0, address.find('%'));
  if (inet_pton(AF_INET6, no_zone.c_str(), &parsed) != 1) return address;
  auto& bytes = parsed.s6_addr;
  if (IN6_IS_ADDR_V4MAPPED(&parsed)) return AddressText(AF_INET, &bytes[12]);
  std::fill(&bytes[8], std::end(bytes), std::uint8_t{0});
  return AddressText(AF_INET6, &parsed) + "/64";
}

}  // namespace VELT
