// Lets the visitor of a request in, or refuses them.
#pragma once

#include "veltsharing/Entry.h"
#include "veltwebapi/APIRequest.h"
#include "veltwebapi/APIResponse.h"

namespace VELT::files {

constexpr const char* kProject = "files";

// Returns the link of a visitor's request, as it is in the store now. Throws Refusal when the link
// is not this application's, or the visitor has no valid visit.
sharing::record::Entry Admit(const APIRequest& request);

// The same for a download, for which a link without protection also lets in who has no visit yet. So a
// single request can download a file.
struct Guest {
  sharing::record::Entry entry;
  bool needs_visit;
};
Guest AdmitDownload(const APIRequest& request);

// The same for a file that is sent whole. Who has no visit is logged in with what the request
// presents, which counts as a visit but leaves no session: at once where the link is protected
// (Refusal(kNoVisit) when that is missing or wrong), else with CountVisit, so that no refusal
// before it uses a visit up.
Guest AdmitWithCredentials(const APIRequest& request);
void CountVisit(const Guest& guest);

// Logs a guest without a visit in, once there is something to send: the visit counts like any other,
// and its cookie is set. A request for the header alone makes none. Throws Refusal.
void MakeVisit(const APIRequest& request, APIResponse& response, const Guest& guest);

}  // namespace VELT::files
