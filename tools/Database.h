// Opens the store's database, but never makes or upgrades it.
#pragma once

#include <memory>
#include <string>

#include "platform/store/sql/Soci.h"
#include "tools/Command.h"

namespace VELT::tools {

// Opens the database that `connection` names. When it is missing, not the store's or of another
// version than this program's, throws Failure, which says what to do.
std::unique_ptr<soci::session> OpenDatabase(const std::string& connection);

// Like OpenDatabase, but takes every version and stores it in `version`.
std::unique_ptr<soci::session> OpenAnyVersion(const std::string& connection, int& version);

// Has the store's functions, which open the database themselves, use that of the options. Throws
// Failure as OpenDatabase does.
void UseStore(const HostOptions& options);

// `connection` without what may be secret in it: an SQLite file's path, or "PostgreSQL".
std::string NameOf(const std::string& connection);

// The error's text, without the values that SOCI adds to it and a server writes below the first
// line.
std::string FirstLine(const soci::soci_error& error);

// The number that the statement returns.
long long Number(soci::session& sql, const std::string& statement);

}  // namespace VELT::tools
