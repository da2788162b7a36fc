// What functions that work on the store get while they run.
#pragma once

#include <memory>
#include <utility>

#include "platform/store/sql/PreparedStatements.h"
#include "platform/store/sql/Soci.h"

namespace VELT::sharing::db {

// An open database with its prepared statements. Connection owns it. It is borrowed for one
// Connection::Run.
class StoreSession {
 public:
  explicit StoreSession(std::unique_ptr<soci::session> sql)
      : sql_(std::move(sql)), statements_(*sql_) {}

  soci::session& sql() { return *sql_; }
  PreparedStatements& statements() { return statements_; }

 private:
  const std::unique_ptr<soci::session> sql_;
  PreparedStatements statements_;  // use sql_, so they are destroyed before it
};

}  // namespace VELT::sharing::db
