// The record of one visitor's grant for one link.
#pragma once

#include <cstdint>

namespace VELT::sharing::db {
class TokenDB;
}

namespace VELT::sharing::record {

// A value type; one object belongs to one thread at a time.
class Token {
 public:
  // When it was read, the token's session was alive, its link enabled, within its times, its owner
  // in the user database, its protection that under which the visitor logged in, and the visitor's
  // address the one that logged in, where the link asks for that.
  bool IsLegal() const { return legal_; }
  // Entry::get_id of the link that the token opens.
  std::int64_t get_entry_id() const { return entry_id_; }

 private:
  friend class db::TokenDB;

  std::int64_t entry_id_ = 0;
  bool legal_ = false;
};

}  // namespace VELT::sharing::record
