// Removing the links that have ended.
#pragma once

#include <cstdint>
#include <string>

#include "sql/Soci.h"

namespace VELT::sharing::db {

// Does what EntryDB::PurgeExpiredByOwnerProject does, in a transaction of its own, and returns the
// number of removed links. Throws soci::soci_error.
long long PurgeLinks(soci::session& sql, std::uint32_t owner, const std::string& project);

}  // namespace VELT::sharing::db
