// Which links a query returns, in which order.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "veltsharing/LinkStatus.h"

namespace VELT::sharing::db {

// Filled by the caller, applied by EntryDB::Count and Query. The field names are those of
// Entry::ToJSON, but not its lists and objects, nor "owner_user", "has_password" and "status",
// which are computed. Any other name makes Count and Query fail. The two types are sorted by their
// values in Entry.h, times and texts by value with empty ones first. A repeated call of Where or
// OrderBy changes nothing.
class Condition {
 public:
  // Keeps only links whose field `key` has `value`, in text form. Several conditions must all hold.
  void Where(const std::string& key, const std::string& value);
  // Keeps only links whose title or data for the application (as JSON text) contains `text`, letters of
  // either case alike, or whose id begins with it and its at least six characters. A repeated call
  // replaces the text; empty: all links.
  void Search(const std::string& text) { search_ = text; }
  // Keeps only links that are in this state now. A repeated call replaces the state.
  void InState(LinkStatus status) { status_ = status; }
  // Sorts by `field`, then by the fields of later calls, and at last by id, in the direction of the
  // first field. PostgreSQL compares only the first 255 characters of a text.
  void OrderBy(const std::string& field, bool ascending);
  // At most `limit` links, beginning with number `offset`, counted from 0. A negative `offset`
  // means 0, a negative `limit` no limit.
  void Limit(int offset, int limit);

 private:
  friend class EntryQuery;

  std::vector<std::pair<std::string, std::string>> where_;
  std::string search_;
  std::optional<LinkStatus> status_;
  std::vector<std::pair<std::string, bool>> order_;
  int offset_ = -1;
  int limit_ = -1;
};

}  // namespace VELT::sharing::db
