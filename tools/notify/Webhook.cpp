#include "tools/notify/Webhook.h"

#include <arpa/inet.h>
#include <curl/curl.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sodium.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <memory>
#include <vector>

#include "veltsys/Base64.h"

namespace VELT::tools {
namespace {

constexpr long kConnectTime = 5;  // seconds
constexpr long kWholeTime = 15;
constexpr std::string_view kSecretPrefix = "whsec_";

using Address = std::array<unsigned char, 16>;  // IPv4 as mapped into IPv6

struct Network {
  const char* text;
  int bits;  // of the address as text has it
};

// Those of https://www.iana.org/assignments/iana-ipv4-special-registry and -ipv6- that are not
// globally reachable, and those whose addresses have an IPv4 address in them.
constexpr auto kNotPublic = std::to_array<Network>({
    {"0.0.0.0", 8},      {"10.0.0.0", 8},     {"100.64.0.0", 10}, {"127.0.0.0", 8},
    {"169.254.0.0", 16}, {"172.16.0.0", 12},  {"192.0.0.0", 24},  {"192.0.2.0", 24},
    {"192.88.99.0", 24}, {"192.168.0.0", 16}, {"198.18.0.0", 15}, {"198.51.100.0", 24},
    {"203.0.113.0", 24}, {"224.0.0.0", 4},    {"240.0.0.0", 4},   {"::", 96},
    {"64:ff9b::", 96},   {"64:ff9b:1::", 48}, {"100::", 64},      {"2001::", 23},
    {"2001:db8::", 32},  {"2002::", 16},      {"fc00::", 7},      {"fe80::", 10},
    {"fec0::", 10},      {"ff00::", 8},
});

constexpr int kMappedBits = 96;

Address Mapped(const in_addr& four) {
  Address address{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};
  std::memcpy(address.data() + kMappedBits / 8, &four, sizeof four);
  return address;
}

bool Read(const sockaddr& from, Address& address) {
  if (from.sa_family == AF_INET) {
    address = Mapped(reinterpret_cast<const sockaddr_in&>(from).sin_addr);
  } else if (from.sa_family == AF_INET6) {
    std::memcpy(address.data(), &reinterpret_cast<const sockaddr_in6&>(from).sin6_addr,
                address.size());
  } else {
    return false;
  }
  return true;
}

bool IsIn(const Address& address, const Network& network) {
  Address first{};
  int bits = network.bits;
  in_addr four{};
  if (inet_pton(AF_INET, network.text, &four) == 1) {
    first = Mapped(four);
    bits += kMappedBits;
  } else {
    inet_pton(AF_INET6, network.text, first.data());
  }
  const auto bytes = bits / 8;
  const int mask = 0xFF00 >> (bits % 8) & 0xFF;
  return std::equal(first.begin(), first.begin() + bytes, address.begin()) &&
         (mask == 0 || ((first.at(static_cast<std::size_t>(bytes)) ^
                         address.at(static_cast<std::size_t>(bytes))) &
                        mask) == 0);
}

bool IsOfThisMachine(const Address& address) {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return true;  // not known, so not allowed
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owned(list, freeifaddrs);
  for (const ifaddrs* each = list; each != nullptr; each = each->ifa_next) {
    Address own{};
    if (each->ifa_addr != nullptr && Read(*each->ifa_addr, own) && own == address) return true;
  }
  return false;
}

struct Opening {
  bool private_networks = false;
  bool refused = false;
};

// Called with each address that the name has, just before it is connected to: what a name server
// says later changes nothing.
curl_socket_t OpenSocket(void* data, curlsocktype /*purpose*/, curl_sockaddr* address) {
  auto& opening = *static_cast<Opening*>(data);
  if (!opening.private_networks && !IsPublic(address->addr)) {
    opening.refused = true;
    return CURL_SOCKET_BAD;
  }
  return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

std::size_t Ignore(char* /*data*/, std::size_t size, std::size_t count, void* /*unused*/) {
  return size * count;
}

std::string KeyOf(const std::string& secret) {
  std::string key(secret.size(), '\0');
  std::size_t length = 0;
  const std::string_view text = std::string_view(secret).substr(kSecretPrefix.size());
  if (sodium_base642bin(reinterpret_cast<unsigned char*>(key.data()), key.size(), text.data(),
                        text.size(), nullptr, &length, nullptr,
                        sodium_base64_VARIANT_ORIGINAL) != 0) {
    return {};
  }
  key.resize(length);
  return key;
}

}  // namespace

std::string SignatureOf(const Webhook& webhook, const std::string& time) {
  const std::string key = KeyOf(webhook.secret);
  const std::string text = webhook.id + "." + time + "." + webhook.body;
  std::array<unsigned char, crypto_auth_hmacsha256_BYTES> mac{};
  crypto_auth_hmacsha256_state state;
  crypto_auth_hmacsha256_init(&state, reinterpret_cast<const unsigned char*>(key.data()),
                              key.size());
  crypto_auth_hmacsha256_update(&state, reinterpret_cast<const unsigned char*>(text.data()),
                                text.size());
  crypto_auth_hmacsha256_final(&state, mac.data());
  std::array<char, sodium_base64_ENCODED_LEN(mac.size(), sodium_base64_VARIANT_ORIGINAL)> base64{};
  sodium_bin2base64(base64.data(), base64.size(), mac.data(), mac.size(),
                    sodium_base64_VARIANT_ORIGINAL);
  return std::string("v1,") + base64.data();
}

bool IsPublic(const sockaddr& from) {
  Address address{};
  return Read(from, address) &&
         std::none_of(kNotPublic.begin(), kNotPublic.end(),
                      [&](const Network& network) { return IsIn(address, network); }) &&
         !IsOfThisMachine(address);
}

std::string Post(const Webhook& webhook) {
  const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(),
                                                                 curl_easy_cleanup);
  if (!curl) return "there is no memory";
  const std::string time = std::to_string(std::time(nullptr));
  curl_slist* fields = nullptr;
  for (const std::string& field :
       {std::string("Content-Type: application/json"), "webhook-id: " + webhook.id,
        "webhook-timestamp: " + time, "webhook-signature: " + SignatureOf(webhook, time)}) {
    fields = curl_slist_append(fields, field.c_str());
  }
  const std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> owned(fields,
                                                                          curl_slist_free_all);
  Opening opening{webhook.private_networks};
  const auto set = [&curl](CURLoption option, auto value) {
    return curl_easy_setopt(curl.get(), option, value) == CURLE_OK;
  };
  const bool is_set =
      set(CURLOPT_URL, webhook.url.c_str()) && set(CURLOPT_PROTOCOLS_STR, "http,https") &&
      set(CURLOPT_PROXY, "") && set(CURLOPT_NOSIGNAL, 1L) &&
      set(CURLOPT_CONNECTTIMEOUT, kConnectTime) && set(CURLOPT_TIMEOUT, kWholeTime) &&
      set(CURLOPT_USERAGENT, "velt-sharing") && set(CURLOPT_HTTPHEADER, fields) &&
      set(CURLOPT_POSTFIELDS, webhook.body.data()) &&
      set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(webhook.body.size())) &&
      set(CURLOPT_OPENSOCKETFUNCTION, OpenSocket) && set(CURLOPT_OPENSOCKETDATA, &opening) &&
      set(CURLOPT_WRITEFUNCTION, Ignore);
  if (!is_set) return "the address can't be used";
  const CURLcode result = curl_easy_perform(curl.get());
  if (opening.refused && result != CURLE_OK)
    return "the address is in a network that is not allowed";
  if (result != CURLE_OK) return curl_easy_strerror(result);
  long status = 0;
  curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
  return status / 100 == 2 ? "" : "the server answered with status " + std::to_string(status);
}

}  // namespace VELT::tools
