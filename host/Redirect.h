// Where a link with a redirect leads.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "veltsharing/Entry.h"

namespace VELT::host {

// `text` with everything but the unreserved characters (RFC 3986, section 2.3) and `also_kept`
// percent-encoded.
std::string PercentEncoded(std::string_view text, std::string_view also_kept = "");

// The address that a link with a redirect leads to, fit for a header; none when it isn't to be
// followed. Browsers take a backslash for a slash, drop line breaks and tabs, and read `//host` as
// another site's address: what they could read in two ways is refused.
std::optional<std::string> RedirectTarget(const sharing::record::Entry& entry);

}  // namespace VELT::host
