// Requests of the web server whose bodies it passes on as they come. The protocol is SCGI
// (https://python.ca/scgi/protocol.txt): lighttpd 1.4.69 stops reading from a client when an SCGI program
// is slow, but not when a FastCGI one is; it then fills its disk with the body.
#pragma once

#include <optional>
#include <string_view>

#include "host/request/FastCgi.h"
#include "host/request/WebRequest.h"
#include "veltsys/Descriptor.h"

namespace VELT::host {

// The variables in the text between the length and the comma of a request's head. Empty when it is
// malformed.
std::optional<WebRequest> ParseScgiHead(std::string_view text);

// Accepts a connection of a socket that does not block, without waiting for one; holds -1 when there is
// none. Throws std::runtime_error when the socket can't be used.
Descriptor AcceptScgi(int listener);

// Reads the head of a request. Its `read_body` reads the rest, from the connection that the result has, for
// each byte of which the web server may take kStreamSilence. Empty when the head is malformed or does
// not come.
std::optional<Incoming> TakeScgi(Descriptor connection);

}  // namespace VELT::host
