// Reads parameters and cookies from a request.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/request/WebRequest.h"
#include "veltwebapi/RequestContext.h"

namespace VELT::host {

using Parameters = std::map<std::string, RawParameter>;

// The name and value pairs of a form or query (application/x-www-form-urlencoded), decoded, in
// order. Returns an empty string, or an error message: for a broken percent escape, a text that is
// not clean (see IsCleanText), or too many pairs. The message calls the text `place`.
std::string DecodeForm(std::string_view text, const char* place,
                       std::vector<std::pair<std::string, std::string>>& pairs);

// Whether the body is raw data for the method rather than parameters.
bool HasRawBody(const WebRequest& request);

// The parameters of query and body. Of several with one name the last counts, and one in the body
// overrides the query. A JSON body may have `levels` of nesting. Returns an empty string, or an error
// message for the client.
std::string ReadParameters(const WebRequest& request, Parameters& parameters,
                           std::size_t levels = 64);

// The cookies of a Cookie header (RFC 6265, section 4.2). Of several with one name the first
// counts: browsers send the one with the longest path first. Cookies that are not clean text are
// left out.
std::map<std::string, std::string> ReadCookies(std::string_view header);

}  // namespace VELT::host
