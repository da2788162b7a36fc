#include "KeptReads.h"

namespace VELT::sharing::db {
namespace {

void Prepare(soci::statement& statement, const std::string& text) {
  statement.alloc();
  statement.prepare(text);
  statement.define_and_bind();
}

// Reads the first row. A statement that stopped before its end would keep the database's state of
// this moment for itself.
bool ReadOne(soci::statement& statement) {
  if (!statement.execute(true)) return false;
  while (statement.fetch()) {
  }
  return true;
}

}  // namespace

KeptReads::KeptReads(soci::session& sql) : read_version_(sql), read_link_(sql) {
  read_version_.exchange(soci::into(version_));
  Prepare(read_version_, "select version from schema_version");
  row_.ReadFrom(read_link_);
  read_link_.exchange(soci::use(hash_));
  Prepare(read_link_, EntryRow::Select() + " where hash = :hash");
}

int KeptReads::SchemaVersion() {
  if (!ReadOne(read_version_)) throw soci::soci_error("The schema version is missing.");
  return version_;
}

const EntryRow* KeptReads::FindLink(const std::string& hash) {
  hash_ = hash;
  return ReadOne(read_link_) ? &row_ : nullptr;
}

}  // namespace VELT::sharing::db
