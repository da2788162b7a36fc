// The visitor of a request, let in or refused.
#pragma once

#include "veltsharing/Entry.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT::files {

constexpr const char* kProject = "files";

// The link of a visitor's request, as it is in the store now. Throws Refusal where it is none of
// this application's, or the visitor has no visit that holds. With `log_in`, one who comes to a link
// without protection and has no visit gets one, counted like any other, and its cookie: so a single
// request downloads a file.
sharing::record::Entry Admit(const APIRequest& request, APIResponse& response, bool log_in);

}  // namespace VELT::files
