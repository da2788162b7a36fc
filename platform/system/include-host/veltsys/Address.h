// Network addresses of clients.
#pragma once

#include <string>

namespace VELT {

// The same text for all addresses that one client is likely to have: of an IPv6 address the first
// 64 bits, since one customer usually gets all addresses below them; a zone (%eth0) is cut off. An
// IPv4 address mapped into IPv6 becomes the IPv4 address. A text that is not an address stays as it is.
std::string SourceKey(const std::string& address);

}  // namespace VELT
