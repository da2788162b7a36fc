// A transaction that rolls back unless it is committed.
#pragma once

#include "platform/store/sql/Soci.h"
#include "platform/store/sql/StoreSession.h"

namespace VELT::sharing::db {

// In SQLite nobody else can write during a transaction; in PostgreSQL nobody else can change the
// rows that were read with the dialect's row lock. All but the destructor throws soci::soci_error.
class Transaction {
 public:
  explicit Transaction(soci::session& session);
  // The same with the statements that the session has prepared.
  explicit Transaction(StoreSession& store);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void Commit();

 private:
  soci::session& session_;
  PreparedStatements* prepared_ = nullptr;
  bool open_ = true;
};

}  // namespace VELT::sharing::db
