#include "sql/PreparedStatements.h"

#include "sql/Dialect.h"
#include "sql/Statement.h"

namespace VELT::sharing::db {

PreparedStatements::PreparedStatements(soci::session& sql)
    : read_version_(sql),
      read_link_(sql),
      read_enabled_link_(sql),
      lock_link_(sql),
      insert_(sql),
      update_(sql) {
  read_version_.exchange(soci::into(version_));
  Prepare(read_version_, "select version from schema_version");
  PrepareRead(read_link_, "");
  PrepareRead(read_enabled_link_, " and enabled = 1");
  PrepareRead(lock_link_, DialectOf(sql).row_lock);
  Prepare(insert_, written_.BindInsert(insert_, new_id_));
  Prepare(update_, written_.BindUpdate(update_));
}

int PreparedStatements::SchemaVersion() {
  if (!RunToEnd(read_version_)) throw soci::soci_error("The schema version is missing.");
  return version_;
}

const EntryRow* PreparedStatements::FindLink(const std::string& hash) {
  return Read(read_link_, hash);
}

const EntryRow* PreparedStatements::FindEnabledLink(const std::string& hash) {
  return Read(read_enabled_link_, hash);
}

const EntryRow* PreparedStatements::LockLink(const std::string& hash) {
  return Read(lock_link_, hash);
}

long long PreparedStatements::Insert(const EntryRow& row) {
  written_ = row;
  if (!RunToEnd(insert_)) throw soci::soci_error("The new link got no id.");
  return new_id_;
}

void PreparedStatements::Update(const EntryRow& row) {
  written_ = row;
  update_.execute(true);
}

void PreparedStatements::PrepareRead(soci::statement& statement, const char* more) {
  read_.ReadFrom(statement);
  statement.exchange(soci::use(hash_));
  Prepare(statement, EntryRow::Select() + " where hash = :hash" + more);
}

const EntryRow* PreparedStatements::Read(soci::statement& statement, const std::string& hash) {
  hash_ = hash;
  return RunToEnd(statement) ? &read_ : nullptr;
}

}  // namespace VELT::sharing::db
