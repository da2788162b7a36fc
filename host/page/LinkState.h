// The state of a link for one visitor.
#pragma once

#include <string>

#include "veltsharing/Entry.h"

namespace VELT::host {

enum class LinkState {
  kUnavailable,  // the database can't be used
  kUnknown,      // no such link, or one that is hidden from visitors
  kPending,
  kExpired,
  kUsedUp,
  kLogin,  // served, but not yet to this visitor
  kOpen,   // the visitor is in
};

// The state of the link `id`, which may be any text, for the visitor with the session `sid`. Fills
// `entry` unless the link is unknown or the database unavailable. `turned_away` means that an
// application has sent the visitor back with an error. They must then log in again even if their
// session is valid; otherwise the redirect would lead them back to the application at once, for
// ever.
LinkState FindLinkState(const std::string& id, const std::string& sid, bool turned_away,
                        sharing::record::Entry& entry);

}  // namespace VELT::host
