// Removes expired and used up links.
#pragma once

#include <cstdint>
#include <string>

#include "platform/store/sql/Soci.h"

namespace VELT::sharing::db {

// Does the work of EntryDB::PurgeExpiredByOwnerProject in its own transaction and returns the
// number of removed links. Throws soci::soci_error.
long long PurgeLinks(soci::session& sql, std::uint32_t owner, const std::string& project);

}  // namespace VELT::sharing::db
