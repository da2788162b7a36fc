// Puts what owners are to be told into the queue.
#pragma once

#include <string>
#include <vector>

#include "platform/store/sql/Soci.h"
#include "veltsharing/LinkEvents.h"
#include "veltsharing/Notify.h"

namespace VELT::sharing::notify {

// Both are to be called in a transaction and throw soci::soci_error.

// What the links' owners want to be told of these events.
void Queue(soci::session& sql, const std::vector<LinkEvent>& events);

// A notice about no link, of which the channel has one at most.
void QueueAlone(soci::session& sql, long long channel, const std::string& kind,
                const std::string& text);

}  // namespace VELT::sharing::notify
