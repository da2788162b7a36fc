// The record of one visitor session.
#pragma once

#include <cstdint>
#include <string>

namespace VELT::sharing::db {
class SessionDB;
class TokenDB;
}  // namespace VELT::sharing::db

namespace VELT::sharing {
struct Visit;
Visit FindVisit(const std::string& link, const std::string& sid);
}  // namespace VELT::sharing

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
  friend Visit VELT::sharing::FindVisit(const std::string&, const std::string&);

  std::int64_t id_ = 0;
  bool legal_ = false;
  bool use_due_ = false;  // it is legal, and its last use was not noted lately
};

}  // namespace VELT::sharing::record
