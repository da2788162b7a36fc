// The target of a link with a redirect.
#pragma once

#include <optional>
#include <string>

#include "veltsharing/Entry.h"

namespace VELT::host {

// The address to redirect to, encoded for a header; empty when the link has no redirect or its
// address is not safe. Only http and https URLs and paths of this site are. Browsers read a
// backslash as a slash, drop line breaks and tabs, and read `//host` as another site's address, so
// all of these are refused.
std::optional<std::string> RedirectTarget(const sharing::record::Entry& entry);

}  // namespace VELT::host
