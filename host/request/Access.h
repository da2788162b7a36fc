// Who makes a request, and whether they may.
#pragma once

#include "host/request/Registry.h"
#include "host/request/WebRequest.h"
#include "veltwebapi/RequestContext.h"

namespace VELT::host {

// Sets the context's user to the one that the web server authenticated. False, changing nothing,
// when there is none or the user database doesn't have them. A change of the user database takes
// effect within a second.
bool IdentifyUser(const WebRequest& request, RequestContext& context);

// Whether a visitor's parameters name another link than the address does. Only who knows the
// address of a link may ask about it.
bool AsksForAnotherLink(const RequestContext& context);

// Whether the caller that `context` describes may call a method with this access. `is_user`:
// IdentifyUser found one.
bool MayCall(const Access& access, const RequestContext& context, bool is_user);

}  // namespace VELT::host
