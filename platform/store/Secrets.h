// Link ids, visitor session ids and link passwords. Everything random is from the system's source.
#pragma once

#include <string>

namespace VELT::sharing {

// 22 characters from [A-Za-z0-9]: 131 bits.
std::string NewLinkId();
// Whether a text has the form of a link id.
bool IsLinkId(const std::string& text);

// 256 bits as base64url (RFC 4648, section 5).
std::string NewSessionId();
// SHA-256 in hexadecimal digits: what the database keeps of a session id.
std::string Digest(const std::string& text);

// Argon2id with 19 MiB and two passes. Empty when the memory for it is lacking.
std::string HashPassword(const std::string& password);
// Throws std::bad_alloc when the memory is lacking, or the hash is none of ours.
bool MatchesPassword(const std::string& hash, const std::string& password);

}  // namespace VELT::sharing
