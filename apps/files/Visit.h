// Lets the visitor of a request in, or refuses them.
#pragma once

#include "veltsharing/Entry.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT::files {

constexpr const char* kProject = "files";

// Returns the link of a visitor's request, as it is in the store now. Throws Refusal when the link
// is not this application's, or the visitor has no valid visit. With `log_in`, a visitor without a
// visit is logged in to a link that has no protection; that visit counts like any other, and its
// cookie is set. So a single request can download a file.
sharing::record::Entry Admit(const APIRequest& request, APIResponse& response, bool log_in);

}  // namespace VELT::files
