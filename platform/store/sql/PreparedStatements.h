// The statements of nearly every request and of every login. They are prepared once per connection,
// because preparing one takes longer than running it.
#pragma once

#include <memory>
#include <string>

#include "sql/EntryRow.h"
#include "sql/Soci.h"

namespace VELT::sharing::db {

// Belongs to one session, which must outlive it. Between two calls no statement is running, so no
// other process waits. All functions throw soci::soci_error.
class PreparedStatements {
 public:
  explicit PreparedStatements(soci::session& sql);
  ~PreparedStatements();
  PreparedStatements(const PreparedStatements&) = delete;
  PreparedStatements& operator=(const PreparedStatements&) = delete;

  int SchemaVersion();

  // Null when no link has this hash. The row is valid until the next call of the same function.
  const EntryRow* FindLink(const std::string& hash);
  // The same for enabled links only. A disabled link takes no longer than an unknown one.
  const EntryRow* FindEnabledLink(const std::string& hash);
  // FindLink within a transaction, until whose end nobody else changes the row.
  const EntryRow* LockLink(const std::string& hash);
  // Stores a new link and returns its new id.
  long long InsertLink(const EntryRow& row);
  // Writes what an update may change over the link with the row's id, which must be locked.
  void UpdateLink(const EntryRow& row);

  // Counts a visit of the link. False, counting nothing, when it has none left.
  bool CountVisit(long long link);
  // Returns the new session's id.
  long long InsertSession(const std::string& sid_hash, const std::string& address, long long now);
  // Replaces the session's token for the link, if there is one.
  void InsertToken(long long session, const EntryRow& link, const std::string& address);
  // Both keep the tables small without a purge: sessions that were not used after `unused_since`,
  // and all but the newest 999 that hold a token of the link for the address. Each call removes a
  // hundred at most, since others wait meanwhile; a login adds one, so no backlog lasts.
  void RemoveDeadSessions(long long unused_since);
  void RemoveSurplusSessions(long long link, const std::string& address);

 private:
  struct Statements;
  const std::unique_ptr<Statements> statements_;
};

}  // namespace VELT::sharing::db
