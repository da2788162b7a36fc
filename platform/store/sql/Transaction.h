// A transaction that rolls back unless it is committed.
#pragma once

#include "sql/Soci.h"

namespace VELT::sharing::db {

// Under SQLite nobody else writes meanwhile; under PostgreSQL only rows that were read with the
// dialect's row lock stay as they are. Throws soci::soci_error, except at its end.
class Transaction {
 public:
  explicit Transaction(soci::session& session);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void Commit();

 private:
  soci::session& session_;
  bool open_ = true;
};

}  // namespace VELT::sharing::db
