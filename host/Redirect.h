// Where a link with a redirect leads.
#pragma once

#include <optional>
#include <string>

#include "veltsharing/Entry.h"

namespace VELT::host {

// The address that a link with a redirect leads to, fit for a header; none when it isn't to be
// followed. Browsers take a backslash for a slash, drop line breaks and tabs, and read `//host` as
// another site's address: what they could read in two ways is refused.
std::optional<std::string> RedirectTarget(const sharing::record::Entry& entry);

}  // namespace VELT::host
