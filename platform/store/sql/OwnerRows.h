// What is read of an owner's session or token, and of its account, for each call.
#pragma once

#include <string>

namespace VELT::sharing::db {

struct OwnerSessionRow {
  long long id = 0;
  long long created_at = 0;
  long long last_used = 0;
  long long stay = 0;
  long long failures = 0;
  std::string account;
  long long uid = 0;
  long long checked_at = 0;  // when PAM was asked about the account
};

struct OwnerTokenRow {
  long long id = 0;
  long long may_change = 0;
  std::string projects;  // a line each
  long long last_used = 0;
  long long expire_at = 0;
  std::string account;
  long long uid = 0;
  long long checked_at = 0;
  std::string credential;  // empty: PAM has refused the account
};

}  // namespace VELT::sharing::db
