// The HTML of a link's page, from the template web/link/page.html.
#pragma once

#include <optional>
#include <string>

#include "LinkState.h"
#include "veltsharing/Entry.h"

namespace VELT::host {

// What the page shows. Every text may be a stranger's but `tags`, which stands in the page as it is.
struct LinkDocument {
  std::string id;  // as in the address
  LinkState state = LinkState::kUnknown;
  std::string error;  // the code to show, in text form; empty: none

  // Of a link that is served.
  sharing::record::Entry entry;
  std::string title;
  std::string tags;
  bool leads_on = false;         // a login leads to another address
  bool unsafe_redirect = false;  // or would, were the address safe to follow

  std::string opens;  // when a pending link does
};

// Nothing, with a log line, when the template can't be read. It is read once for each process.
std::optional<std::string> Expand(const LinkDocument& document);

// The HTTP status of a page in this state (RFC 9110, section 15).
int StatusOf(LinkState state);

}  // namespace VELT::host
