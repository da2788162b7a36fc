// The HTML of a link's page, from the template web/link/page.html.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/page/LinkState.h"
#include "host/page/PageTexts.h"
#include "veltsharing/Entry.h"

namespace VELT::host {

// What the page shows. Every text is untrusted and is escaped, except `tags`, which are inserted
// unchanged.
struct LinkDocument {
  const PageLanguage* language = nullptr;  // never null when it is expanded
  std::string id;                          // as in the address
  LinkState state = LinkState::kUnknown;
  std::string error;  // the code to show, in text form; empty: none

  // Used only when the link is served.
  sharing::record::Entry entry;
  std::string title;
  std::string tags;
  std::string server_name;
  bool leads_on = false;         // a login redirects to another address
  bool unsafe_redirect = false;  // the link has a redirect, but its address is not safe to follow

  // Of a pending link: the local time at which it opens, and the seconds until then.
  std::string opens;
  std::int64_t opens_in = 0;
};

// The page's HTML. Empty, with a log line, when the template can't be read, which happens once in
// each process.
std::optional<std::string> Expand(const LinkDocument& document);

// The HTTP status of a page in this state (RFC 9110, section 15).
int StatusOf(LinkState state);

}  // namespace VELT::host
