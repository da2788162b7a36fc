// How SQLite and PostgreSQL differ. The differences in the tables are in Schema.cpp; all other SQL
// is the same for both.
#pragma once

#include <memory>
#include <string>

#include "platform/store/sql/Soci.h"

namespace VELT::sharing::db {

struct Dialect {
  const char* begin;     // opens a transaction that will write
  const char* row_lock;  // ends a select in a transaction that needs the row unchanged
  // Stand around a text column where links are ordered by it. PostgreSQL can't index long texts.
  const char* before_text_key;
  const char* after_text_key;
  // Before a column, keeps the index of a filter from being preferred to that of an order. Empty where
  // the planner knows from statistics how many rows a filter leaves.
  const char* unindexed;
  // Whether the title or the application's data contain :search, letters of either case alike.
  const char* contains_search;
  // PostgreSQL locks each row that is removed, also those that go with a link or a session. Removals
  // of many rows that others may remove in another order would wait for each other in a circle. So
  // only one at a time goes through the sessions, and meanwhile no link is removed.
  const char* if_alone;        // begins such a removal's condition; false while there is another
  const char* beside_no_such;  // begins the condition of a removal of links or of a link's tokens;
                               // waits until there is none
};

const Dialect& DialectOf(soci::session& session);

// Opens the database that a StoreOptions::connection names. Never creates an SQLite file. Throws
// soci::soci_error.
std::unique_ptr<soci::session> OpenSession(const std::string& connection);

// Whether the server has ended the session, as far as that is known without a query. To be called
// only between two statements.
bool IsLost(soci::session& session);

// The path of the SQLite file, empty for another database.
std::string SqlitePath(const std::string& connection);

}  // namespace VELT::sharing::db
