// The record of one visitor session.
#pragma once

#include <cstdint>

namespace VELT::sharing::db {
class SessionDB;
class TokenDB;
}  // namespace VELT::sharing::db

namespace VELT::sharing::record {

// Made by a visitor's login, ended by logout or 24 hours without use. A value type; one object
// belongs to one thread at a time.
class Session {
 public:
  // The session existed and had not ended when it was read.
  bool IsLegal() const { return legal_; }

 private:
  friend class db::SessionDB;
  friend class db::TokenDB;

  std::int64_t id_ = 0;
  bool legal_ = false;
};

}  // namespace VELT::sharing::record
