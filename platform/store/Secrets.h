// Link ids, visitor session ids and link passwords. Random values come from the system's generator.
#pragma once

#include <cstddef>
#include <string>

namespace VELT::sharing {

// 22 characters from [A-Za-z0-9]: 131 bits.
std::string NewLinkId();
// Whether a text has the form of a link id.
bool IsLinkId(const std::string& text);

inline constexpr std::size_t kSessionIdLength = 43;
// 256 bits as base64url (RFC 4648, section 5).
std::string NewSessionId();
// SHA-256 in hexadecimal digits: what the database keeps of a session id.
std::string Digest(const std::string& text);

// Argon2id with 19 MiB and two passes. Empty when memory is lacking.
std::string HashPassword(const std::string& password);
// Whether `password` has this hash. False when `hash` is not one of HashPassword. Throws
// std::bad_alloc when memory is lacking.
bool MatchesPassword(const std::string& hash, const std::string& password);

}  // namespace VELT::sharing
