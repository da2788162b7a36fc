// The statements of nearly every request, kept prepared: preparing them costs more than they do.
#pragma once

#include <optional>
#include <string>

#include "sql/EntryRow.h"
#include "sql/Soci.h"

namespace VELT::sharing::db {

// Belongs to the session that it is made for and must end before it. Between two calls no statement
// is under way, so no other process is held up. Everything throws soci::soci_error.
class PreparedStatements {
 public:
  explicit PreparedStatements(soci::session& sql);
  PreparedStatements(const PreparedStatements&) = delete;
  PreparedStatements& operator=(const PreparedStatements&) = delete;

  // Throws when there is none.
  int SchemaVersion();
  // Each null when no link has this hash; valid until the next call. A link that is disabled is as
  // none to FindEnabledLink, which takes no longer to say so. LockLink's stays as it is until the
  // transaction's end.
  const EntryRow* FindLink(const std::string& hash);
  const EntryRow* FindEnabledLink(const std::string& hash);
  const EntryRow* LockLink(const std::string& hash);
  // Stores a new link and returns the id that it was given.
  long long Insert(const EntryRow& row);
  // Writes what an update may change over the link with the row's id, which must be locked.
  void Update(const EntryRow& row);

 private:
  void PrepareRead(soci::statement& statement, const char* more);
  const EntryRow* Read(soci::statement& statement, const std::string& hash);

  int version_ = 0;
  std::string hash_;
  EntryRow read_;
  EntryRow written_;
  long long new_id_ = 0;
  soci::statement read_version_;
  soci::statement read_link_;
  soci::statement read_enabled_link_;
  soci::statement lock_link_;
  soci::statement insert_;
  soci::statement update_;
};

}  // namespace VELT::sharing::db
