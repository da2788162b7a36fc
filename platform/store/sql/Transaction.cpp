#include "platform/store/sql/Transaction.h"

#include "platform/store/sql/Dialect.h"

namespace VELT::sharing::db {

Transaction::Transaction(soci::session& session) : session_(session) {
  session_ << DialectOf(session_).begin;
}

Transaction::Transaction(StoreSession& store)
    : session_(store.sql()), prepared_(&store.statements()) {
  prepared_->Begin();
}

Transaction::~Transaction() {
  if (!open_) return;
  try {
    session_ << "rollback";
  } catch (const std::exception&) {  // an error may have ended the transaction already
    return;
  }
}

void Transaction::Commit() {
  if (prepared_ != nullptr) {
    prepared_->Commit();
  } else {
    session_ << "commit";
  }
  open_ = false;
}

}  // namespace VELT::sharing::db
