// Whether the caller of a method may call it.
#pragma once

#include <string>

#include "host/request/Registry.h"
#include "veltwebapi/RequestContext.h"

namespace VELT::host {

// Whether a visitor's parameters name another link than the address does. Only who knows the
// address of a link may ask about it.
bool AsksForAnotherLink(const RequestContext& context);

// Whether the caller that `context` describes may call the method. `signs_in_here`: owners sign in
// through the API, so whoever is at the owners' address may begin to; else he may only ask.
bool MayCall(const Method& method, const RequestContext& context, bool signs_in_here);

// Why a token does not open a method that its owner may call; empty when it does.
std::string BeyondToken(const Method& method, const RequestContext& context);

}  // namespace VELT::host
