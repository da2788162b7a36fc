// Where SQLite and PostgreSQL want different words for the same thing; those of the tables stand in
// Schema.cpp. All other SQL is plain.
#pragma once

#include <memory>
#include <string>

#include "sql/Soci.h"

namespace VELT::sharing::db {

struct Dialect {
  const char* begin;     // opens a transaction that is going to write
  const char* row_lock;  // ends a select within one, so that nobody changes the row meanwhile
};

const Dialect& DialectOf(soci::session& session);

// Connects to what StoreOptions calls its connection. Throws soci::soci_error. An SQLite file that
// does not exist is not created.
std::unique_ptr<soci::session> OpenSession(const std::string& connection);

// The path of the SQLite file, empty for another database.
std::string SqlitePath(const std::string& connection);

}  // namespace VELT::sharing::db
