// Sends a message to an address of the web that an owner has chosen.
#pragma once

#include <sys/socket.h>

#include <string>

namespace VELT::tools {

struct Webhook {
  std::string url;
  std::string id;                 // of the message
  std::string secret;             // of the address
  std::string body;               // JSON
  bool private_networks = false;  // whether it may be in networks that the internet does not reach
};

// "v1," and the base64 HMAC-SHA256 with the secret of "ID.TIME.BODY", `time` in seconds since 1970,
// as https://www.standardwebhooks.com has it. `secret` is "whsec_" and the key in base64.
std::string SignatureOf(const Webhook& webhook, const std::string& time);

// Whether the address is one that the internet reaches, and not this machine's.
bool IsPublic(const sockaddr& address);

// Posts the body. Returns why it was not taken, or "". Redirections are not followed.
std::string Post(const Webhook& webhook);

}  // namespace VELT::tools
