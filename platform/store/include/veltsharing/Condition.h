// Which links a query returns, in which order.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace VELT::sharing::db {

// Filled by the caller, applied by EntryDB::Count and Query. The field names are those of
// Entry::ToJSON, except its lists and objects and what it computes: "owner_user", "has_password"
// and "status", which changes by itself and so can't order pages. Any other name makes Count and
// Query fail. The two types are ordered by their numbers in Entry.h, times and texts by value with
// the empty first. A repeated call of Where or OrderBy changes nothing.
class Condition {
 public:
  // Keep only links whose field `key` has `value`, in text form. All of several must hold.
  void Where(const std::string& key, const std::string& value);
  // Order by `field`; equal values are ordered by id. Of several the first weighs most.
  void OrderBy(const std::string& field, bool ascending);
  // At most `limit` links from the zero-based `offset` on; negative: from the first, without a
  // limit.
  void Limit(int offset, int limit);

 private:
  friend class EntryQuery;

  std::vector<std::pair<std::string, std::string>> where_;
  std::vector<std::pair<std::string, bool>> order_;
  int offset_ = -1;
  int limit_ = -1;
};

}  // namespace VELT::sharing::db
