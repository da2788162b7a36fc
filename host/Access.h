// Who makes a request, and whether they may.
#pragma once

#include <string>

#include "Registry.h"
#include "WebRequest.h"
#include "veltwebapi/RequestContext.h"

namespace VELT::host {

// Fills in the user that the web server logged in. False, changing nothing, when it logged nobody
// in or the user database doesn't know them. A change of the user database is noticed within a
// second.
bool IdentifyUser(const WebRequest& request, RequestContext& context);

// Whether a visitor names another link than that of the address. Who may ask about a link has its
// address.
bool AsksForAnotherLink(const RequestContext& context);

// Whether the caller that `context` describes may call a method with this access. `is_user`:
// IdentifyUser found one.
bool MayCall(const Access& access, const RequestContext& context, bool is_user);

}  // namespace VELT::host
