// Parameters and cookies out of the text of a request.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "WebRequest.h"
#include "veltwebapi/RequestContext.h"

namespace VELT::host {

using Parameters = std::map<std::string, RawParameter>;

// The name and value pairs of a form or query (application/x-www-form-urlencoded), decoded, in
// order. Returns the empty text, or else what is wrong with it: a broken percent escape, text that
// is not clean (see veltsys/Text.h), or too many pairs. `place` is what the message calls it.
std::string DecodeForm(std::string_view text, const char* place,
                       std::vector<std::pair<std::string, std::string>>& pairs);

// Whether the body is handed to the method as it comes, instead of holding parameters.
bool HasRawBody(const WebRequest& request);

// The parameters of query and body; of two with one name that of the body counts, else the last.
// Returns the empty text, or else what is wrong with the request, in words for its author.
std::string ReadParameters(const WebRequest& request, Parameters& parameters);

// The cookies of a Cookie header (RFC 6265, section 4.2). Of two with one name the first counts:
// browsers put that with the closest path first. What is not clean text is left out.
std::map<std::string, std::string> ReadCookies(std::string_view header);

}  // namespace VELT::host
