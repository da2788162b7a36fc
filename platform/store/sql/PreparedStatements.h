// The statements that most requests and all logins use. They are prepared once per connection,
// because preparing one takes longer than running it.
#pragma once

#include <memory>
#include <string>

#include "platform/store/sql/EntryRow.h"
#include "platform/store/sql/OwnerRows.h"
#include "platform/store/sql/Soci.h"
#include "platform/store/sql/VisitorRows.h"

namespace VELT::sharing::db {

// Uses one session, which must outlive it. Each statement ends within its call, so that it holds no
// lock afterwards. All functions throw soci::soci_error.
class PreparedStatements {
 public:
  explicit PreparedStatements(soci::session& sql);
  ~PreparedStatements();
  PreparedStatements(const PreparedStatements&) = delete;
  PreparedStatements& operator=(const PreparedStatements&) = delete;

  // For Transaction.
  void Begin();
  void Commit();

  int SchemaVersion();

  // Null when there is no such row, here a link with this hash. The row is valid until the next call
  // of the same function.
  const EntryRow* FindLink(const std::string& hash);
  // The same for enabled links only. A disabled link takes no longer than an unknown one.
  const EntryRow* FindEnabledLink(const std::string& hash);
  // FindLink within a transaction. Nobody else changes the row until the transaction ends.
  const EntryRow* LockLink(const std::string& hash);
  const EntryRow* FindLinkById(long long id);
  // The session whose id has this digest; LockSession locks it as LockLink locks a link.
  const SessionRow* FindSession(const std::string& sid_hash);
  const SessionRow* LockSession(const std::string& sid_hash);
  // The session's token for the link.
  const TokenRow* FindToken(long long session, long long link);
  // An owner's session whose id has this digest and that the account's password is still that of; an owner's
  // token with this digest.
  const OwnerSessionRow* FindOwnerSession(const std::string& sid_hash);
  const OwnerTokenRow* FindOwnerToken(const std::string& token_hash);
  // Stores a new link and returns its new id.
  long long InsertLink(const EntryRow& row);
  // Writes the columns that the row marks as changed to the link with its id, which must be locked.
  void UpdateLink(const EntryRow& row);

  // Counts a visit of the link. False, counting nothing, when it has none left.
  bool CountVisit(long long link);
  // Counts the visit for `day`, and removes the link's days before `oldest`.
  void CountVisitOfDay(long long link, long long day, long long oldest);
  // Returns the new session's id.
  long long InsertSession(const std::string& sid_hash, const std::string& address, long long now);
  // Replaces the session's token for the link, if there is one.
  void InsertToken(long long session, const EntryRow& link, const std::string& address);
  // These keep the tables small without a purge. The first removes sessions that were not used
  // after `unused_since`, the second all but the newest 999 sessions that hold a token of the link
  // for the address. Each call removes a hundred at most, since others wait for it. Every login
  // calls both and adds only one session.
  void RemoveDeadSessions(long long unused_since);
  void RemoveSurplusSessions(long long link, const std::string& address);

 private:
  struct Statements;
  soci::session& sql_;
  const std::unique_ptr<Statements> statements_;
};

}  // namespace VELT::sharing::db
