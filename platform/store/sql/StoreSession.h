// What work on the store has in hand while it runs.
#pragma once

#include <memory>
#include <utility>

#include "sql/Dialect.h"
#include "sql/PreparedStatements.h"
#include "sql/Soci.h"

namespace VELT::sharing::db {

// An open database with its prepared statements. Connection owns it and lends it to the work that
// Connection::Run does; nobody keeps it longer.
class StoreSession {
 public:
  explicit StoreSession(std::unique_ptr<soci::session> sql)
      : sql_(std::move(sql)), dialect_(DialectOf(*sql_)), statements_(*sql_) {}

  soci::session& sql() { return *sql_; }
  const Dialect& dialect() const { return dialect_; }
  PreparedStatements& statements() { return statements_; }

 private:
  const std::unique_ptr<soci::session> sql_;
  const Dialect& dialect_;
  PreparedStatements statements_;  // of sql_, so they end before it
};

}  // namespace VELT::sharing::db
