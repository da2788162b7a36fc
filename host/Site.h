// Which site a request is made to, and from.
#pragma once

#include <string>

#include "WebRequest.h"

namespace VELT::host {

// Whether `text` is a host, with or without a port, and nothing else (RFC 3986, section 3.2.2).
bool IsPlainHost(const std::string& text);

// Whether `text` is an http or https URL of a plain host without a path.
bool IsSiteURL(const std::string& text);

// The address that links begin with: `external_url`, or else the one that the browser used. Empty
// when its Host header is none or no plain host, for then it can't stand in a link.
std::string BaseURL(const WebRequest& request, const std::string& external_url);

// Whether the browser says that a page of another origin makes this request, by Sec-Fetch-Site
// (https://www.w3.org/TR/fetch-metadata/), which no page can set, or else by Origin. Programs that
// are no browser say nothing.
bool IsFromOtherSite(const WebRequest& request, const std::string& base_url);

}  // namespace VELT::host
