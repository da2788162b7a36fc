// Where SQLite and PostgreSQL want different words for the same thing. All other SQL is plain.
#pragma once

#include <memory>
#include <string>

#include "Soci.h"

namespace VELT::sharing::db {

struct Dialect {
  const char* begin;      // opens a transaction that is going to write
  const char* row_lock;   // ends a select within one, so that nobody changes the row meanwhile
  const char* id_column;  // a primary key whose values never come back
  const char* text_type;  // texts ordered by their bytes
  // The columns, behind the owner, of the index that serves an owner's lists. In SQLite it holds
  // all that a list can sort by, so that a page is sorted without touching the table: an owner's
  // rows lie together in the index but all over the table. PostgreSQL can't index long texts.
  const char* list_index;
};

const Dialect& DialectOf(soci::session& session);

// Connects to what StoreOptions calls its connection. Throws soci::soci_error. An SQLite file that
// does not exist is not created.
std::unique_ptr<soci::session> OpenSession(const std::string& connection);

// The path of the SQLite file, empty for another database.
std::string SqlitePath(const std::string& connection);

}  // namespace VELT::sharing::db
