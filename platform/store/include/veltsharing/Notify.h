// What owners want to be told of their links, and where to. For API modules other than the sharing
// module.
//
// All functions can be called in any process, by one thread at a time. They return false when the
// database can't be used, which is in the log.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "veltsharing/Entry.h"

namespace VELT::sharing::notify {

// A set of these.
using Kinds = int;
inline constexpr Kinds kOpened = 1;    // for the first time
inline constexpr Kinds kUpload = 2;    // a file was left
inline constexpr Kinds kDownload = 4;  // a file or an archive
inline constexpr Kinds kEnding = 8;  // the link ends within a day, or within a quarter of its life
inline constexpr Kinds kGuesses = 16;  // so many logins failed that the next ones are refused
inline constexpr std::array<std::pair<const char*, Kinds>, 5> kKindNames = {
    {{"opened", kOpened},
     {"upload", kUpload},
     {"download", kDownload},
     {"ending", kEnding},
     {"guesses", kGuesses}}};

// How the owner is told: by mail, or by a POST to an address of the web.
struct Channel {
  std::string address;    // empty: not this way
  bool confirmed = true;  // false: an address of mail whose code its reader has not entered yet
  std::string secret;  // a webhook's: its receiver knows the sender by it (docs/notifications.md)
  std::string error;   // why the last attempt failed, empty after a success
  std::int64_t failing_since = 0;  // seconds since 1970, with `error`
};

struct Settings {
  Kinds kinds = 0;  // of links without kinds of their own
  Channel mail;
  Channel webhook;
};

struct Owner {
  unsigned int uid = 0;
  std::string account;
  std::string language;  // of the messages: a code such as "enu"
};

bool Load(unsigned int uid, Settings& settings);
// Stores kinds and addresses. Another address of mail gets a code, and nothing else before it is
// confirmed.
bool Save(const Owner& owner, Kinds kinds, const std::string& mail, const std::string& webhook);
// `confirmed` is whether the code is that of the owner's address.
bool Confirm(unsigned int uid, const std::string& code, bool& confirmed);
// Gives the webhook another secret.
bool RenewSecret(unsigned int uid);
// Queues a message that says that it is one to try with, for each address.
bool Try(unsigned int uid);

// The stored link's own kinds, if it has such.
bool LoadOfLink(const record::Entry& entry, std::optional<Kinds>& kinds);
bool SaveOfLink(const record::Entry& entry, std::optional<Kinds> kinds);

}  // namespace VELT::sharing::notify
