// The statements that every successful login makes, kept prepared as PreparedStatements are.
#pragma once

#include <string>

#include "sql/EntryRow.h"
#include "sql/Soci.h"

namespace VELT::sharing::db {

// Belongs to the session that it is made for and must end before it. Everything throws
// soci::soci_error.
class LoginStatements {
 public:
  explicit LoginStatements(soci::session& sql);
  LoginStatements(const LoginStatements&) = delete;
  LoginStatements& operator=(const LoginStatements&) = delete;

  // Counts a visit of the link. False, counting nothing, when it has none left.
  bool CountVisit(long long link);
  // Returns the id of the new session, which is for `link`. So that visitors fill nothing up where
  // nobody asks for a purge, some of the sessions go that were not used after `unused_since`, and
  // the oldest of the link's from this address when there are a thousand. Both are few at a time,
  // for others wait meanwhile, but more than one: no backlog lasts.
  long long InsertSession(const std::string& sid_hash, const std::string& address, long long link,
                          long long now, long long unused_since);
  // A token that the session has already is made one like the new one.
  void InsertToken(long long session, const EntryRow& link, const std::string& address);

 private:
  std::string hash_;
  std::string address_;
  long long link_ = 0;
  long long protection_ = 0;
  long long session_ = 0;
  long long now_ = 0;
  long long unused_since_ = 0;
  soci::statement count_visit_;
  soci::statement remove_dead_;
  soci::statement remove_surplus_;
  soci::statement insert_session_;
  soci::statement insert_token_;
};

}  // namespace VELT::sharing::db
