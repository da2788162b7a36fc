// The record of one session's access to one link.
#pragma once

#include <cstdint>

namespace VELT::sharing::db {
class TokenDB;
}

namespace VELT::sharing::record {

// A value type; one object belongs to one thread at a time.
class Token {
 public:
  // Whether, when the token was read, its session had not ended; its link was enabled, within its
  // times, its owner had an account and its protection was the same as at the login; and, if the
  // link asks for that, the visitor had the same address as at the login.
  bool IsLegal() const { return legal_; }
  // Entry::get_id of the link that the token opens.
  std::int64_t get_entry_id() const { return entry_id_; }

 private:
  friend class db::TokenDB;

  std::int64_t entry_id_ = 0;
  bool legal_ = false;
};

}  // namespace VELT::sharing::record
