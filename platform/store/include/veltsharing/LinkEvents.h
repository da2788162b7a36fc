// What visitors did with a link, for its owner.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "veltsharing/Entry.h"

namespace VELT::sharing {

struct LinkEvent {
  std::string link;        // the id in the link's address
  std::int64_t time = 0;   // seconds since 1970
  std::string kind;        // "visit", "login", "download", "preview", "archive" or "upload"
  std::string file;        // what it was about, as visitors read it; may be empty
  std::string result;      // "ok", "refused", "incomplete", or "braked": too many logins had failed
  std::string address;     // the visitor's, shortened; may be empty
  std::string browser;     // roughly
  std::int64_t times = 1;  // that it happened at about this time
};

struct LinkEventFilter {
  std::string kind;        // empty: all
  std::int64_t since = 0;  // only later ones
  int offset = 0;          // of what is wanted, counted from 0
  int limit = 0;
};

// Sets `events` to those of the stored link that the filter leaves, the newest first, without their
// `link`, and `total` to the number of all that it leaves. False when the database can't be used.
bool ListLinkEvents(const record::Entry& entry, const LinkEventFilter& filter,
                    std::vector<LinkEvent>& events, int& total);

}  // namespace VELT::sharing
