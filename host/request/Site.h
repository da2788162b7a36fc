// Which site a request is sent to, and which site's page sends it.
#pragma once

#include <string>

#include "host/request/WebRequest.h"

namespace VELT::host {

// Whether `text` is a host, with or without a port, and nothing else (RFC 3986, section 3.2.2).
bool IsPlainHost(const std::string& text);

// Whether `text` is an http or https URL of a plain host without a path.
bool IsSiteURL(const std::string& text);

// The beginning of links: `external_url`, or else scheme and host of the request. Empty when the
// Host header is missing or is not a plain host, which could make a link lead elsewhere.
std::string BaseURL(const WebRequest& request, const std::string& external_url);

// Whether the browser says that a page of another origin sends this request, in Sec-Fetch-Site
// (https://www.w3.org/TR/fetch-metadata/), which no page can set, or else in Origin. Other programs
// than browsers send neither.
bool IsFromOtherSite(const WebRequest& request, const std::string& base_url);

}  // namespace VELT::host
