// The text of an answer, as the web server expects it from a FastCGI program (RFC 3875, section 6).
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "veltwebapi/ErrorCodes.h"
#include "veltwebapi/ResponseState.h"

namespace VELT::host {

// The answer that a handler has set in `state`, which must hold a success or an error. `secure`
// marks every cookie as Secure.
std::string JsonAnswer(const ResponseState& state, bool secure);
// The lines of an answer that have its cookies and Retry-After, and those that keep it from caches
// and other sites unless the handler's own lines, at the beginning of `printed`, already say that.
std::string HeaderLines(const ResponseState& state, bool secure, std::string_view printed = {});
// `status` is HTTP's, with its reason phrase; `retry_after` as in ResponseState.
std::string ErrorAnswer(ErrorCode code, const std::string& detail, const char* status = "200 OK",
                        std::int64_t retry_after = 0);

// An answer in plain text. `status` has its reason phrase ("404 Not Found"); `text` is one line,
// `fields` are further lines of the header.
std::string PlainAnswer(const std::string& status, const std::string& text,
                        const std::string& fields = "");

}  // namespace VELT::host
