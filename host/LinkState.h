// How a visitor finds a link.
#pragma once

#include <string>

#include "veltsharing/Entry.h"

namespace VELT::host {

enum class LinkState {
  kUnavailable,  // the database can't be used
  kUnknown,      // there is none that visitors may know of
  kPending,
  kExpired,
  kUsedUp,
  kLogin,  // served, but not yet to this visitor
  kOpen,   // the visitor is in
};

// The state of the link `id`, which may be any text, for the visitor with the session `sid`. Fills
// `entry` unless the link is unknown or the database unavailable. With `turned_away`, an application
// has sent the visitor back although the session holds for this link: it must log in anew, so that
// no redirect sends the visitor round in circles.
LinkState FindLinkState(const std::string& id, const std::string& sid, bool turned_away,
                        sharing::record::Entry& entry);

}  // namespace VELT::host
