#include "KeptStatements.h"

namespace VELT::sharing::db {

void Prepare(soci::statement& statement, const std::string& text) {
  statement.alloc();
  statement.prepare(text);
  statement.define_and_bind();
}

bool RunToEnd(soci::statement& statement) {
  if (!statement.execute(true)) return false;
  while (statement.fetch()) {
  }
  return true;
}

KeptStatements::KeptStatements(soci::session& sql)
    : read_version_(sql), read_link_(sql), insert_(sql), update_(sql) {
  read_version_.exchange(soci::into(version_));
  Prepare(read_version_, "select version from schema_version");
  read_.ReadFrom(read_link_);
  read_link_.exchange(soci::use(hash_));
  Prepare(read_link_, EntryRow::Select() + " where hash = :hash");
  Prepare(insert_, written_.BindInsert(insert_, new_id_));
  Prepare(update_, written_.BindUpdate(update_));
}

int KeptStatements::SchemaVersion() {
  if (!RunToEnd(read_version_)) throw soci::soci_error("The schema version is missing.");
  return version_;
}

const EntryRow* KeptStatements::FindLink(const std::string& hash) {
  hash_ = hash;
  return RunToEnd(read_link_) ? &read_ : nullptr;
}

long long KeptStatements::Insert(const EntryRow& row) {
  written_ = row;
  if (!RunToEnd(insert_)) throw soci::soci_error("The new link got no id.");
  return new_id_;
}

bool KeptStatements::Update(const EntryRow& row) {
  written_ = row;
  update_.execute(true);
  return update_.get_affected_rows() == 1;
}

}  // namespace VELT::sharing::db
