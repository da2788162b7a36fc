// The store's database, opened for a look or a repair: never made, never brought to another version.
#pragma once

#include <memory>
#include <string>

#include "sql/Soci.h"

namespace VELT::tools {

// Opens the database that `connection` names. Throws Failure, which says what to do, when it is
// not there, not the store's or of another version than this program's.
std::unique_ptr<soci::session> OpenDatabase(const std::string& connection);

// As OpenDatabase, whatever version it has, which goes to `version`.
std::unique_ptr<soci::session> OpenAnyVersion(const std::string& connection, int& version);

// `connection` without what may be secret in it: an SQLite file's path, or "PostgreSQL".
std::string NameOf(const std::string& connection);

// What went wrong, without the values in hand that SOCI, or a server below the first line, adds.
std::string FirstLine(const soci::soci_error& error);

// The number that the statement gives.
long long Number(soci::session& sql, const std::string& statement);

}  // namespace VELT::tools
