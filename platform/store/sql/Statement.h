// Helpers to prepare and run SOCI statements. Both throw soci::soci_error.
#pragma once

#include <string>

#include "platform/store/sql/Soci.h"

namespace VELT::sharing::db {

// Prepares a statement to which all variables have been bound by `exchange`.
void Prepare(soci::statement& statement, const std::string& text);

// Runs a statement to its end and returns whether it gave a row. In SQLite a statement that stops
// before its end keeps its transaction open: a read sees no later changes, a write is not
// committed.
bool RunToEnd(soci::statement& statement);

}  // namespace VELT::sharing::db
