// What SOCI leaves open about preparing and running a statement. Both throw soci::soci_error.
#pragma once

#include <string>

#include "sql/Soci.h"

namespace VELT::sharing::db {

// Prepares a statement whose variables have been exchanged.
void Prepare(soci::statement& statement, const std::string& text);

// Runs a statement to its end and returns whether it gave a row. A read that stops before its end
// keeps seeing the database as it is at this moment, and a write is not committed.
bool RunToEnd(soci::statement& statement);

}  // namespace VELT::sharing::db
