#include "veltsharing/Condition.h"

#include <algorithm>

namespace VELT::sharing::db {

void Condition::Where(const std::string& key, const std::string& value) {
  const std::pair clause(key, value);
  if (std::find(where_.begin(), where_.end(), clause) == where_.end()) where_.push_back(clause);
}

void Condition::OrderBy(const std::string& field, bool ascending) {
  const auto same = [&field](const auto& clause) { return clause.first == field; };
  if (std::none_of(order_.begin(), order_.end(), same)) order_.emplace_back(field, ascending);
}

void Condition::Limit(int offset, int limit) {
  offset_ = offset;
  limit_ = limit;
}

}  // namespace VELT::sharing::db
