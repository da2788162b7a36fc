// Writes what visitors did with links, for the host.
#pragma once

#include <vector>

#include "veltsharing/LinkEvents.h"

namespace VELT::sharing {

// Writes the events in one transaction, those of links that are gone not, queues what their links'
// owners want to be told of them (Notices.h), and removes those that are older than `days` days (0:
// writes none) or too many of one link or in all, a part at a time. False when the database can't
// be used; nothing is written then. Their texts must be clean (IsCleanText).
bool RecordLinkEvents(const std::vector<LinkEvent>& events, int days);

}  // namespace VELT::sharing
