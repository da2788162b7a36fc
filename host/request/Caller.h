// Who calls as an owner of links.
#pragma once

#include <cstdint>
#include <optional>

#include "host/Options.h"
#include "host/Pool.h"
#include "host/request/WebRequest.h"
#include "veltwebapi/RequestContext.h"

namespace VELT::host {

// The variable in which a worker of the pool "login" tells the next pool's whom it has let in by HTTP
// Basic. What a web server sends under this name is dropped.
inline constexpr const char* kJudgedOwner = "VELT_OWNER";

// The account's name and password of HTTP Basic (RFC 7617), if the request presents them.
std::optional<APICredentials> BasicCredentials(const WebRequest& request);

struct Caller {
  enum class Kind {
    kNobody,
    kOwner,
    kUnjudged,  // only a worker of the pool "login" can tell
    kBraked,    // too many attempts have failed
    kUnknown,   // the database or PAM is out of order
  };
  Kind kind = Kind::kNobody;
  std::int64_t wait = 0;  // after kBraked: seconds to the next attempt
};

// Sets the context's owner, and the user that he is. Who presents a token or, where that is allowed, a
// password is judged by it alone; otherwise the owner's session counts or, where so configured, the
// name that the web server gives. A change of the user database takes effect within a second.
Caller IdentifyCaller(const WebRequest& request, const Options& options, Pool pool,
                      RequestContext& context);

}  // namespace VELT::host
