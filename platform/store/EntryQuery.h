// Translates a Condition to SQL and runs it.
#pragma once

#include <string>
#include <vector>

#include "sql/Soci.h"
#include "veltsharing/Condition.h"
#include "veltsharing/Entry.h"

namespace VELT::sharing::db {

class EntryQuery {
 public:
  explicit EntryQuery(const Condition& condition);

  // False when the condition names a field that Condition.h does not allow, which has been logged.
  bool IsGood() const { return good_; }
  // Both throw soci::soci_error, and Run std::runtime_error for a damaged link.
  void Count(soci::session& sql, int& n) const;
  void Run(soci::session& sql, std::vector<record::Entry>& entries) const;

 private:
  struct Value {
    bool is_text;
    std::string text;
    long long number;
  };

  void AddFilter(const std::string& field, const std::string& text);
  void AddOrder(const std::string& field, bool ascending);
  void Bind(soci::statement& statement) const;

  std::string where_;
  std::string order_;
  std::vector<Value> values_;
  long long offset_;
  long long limit_;  // negative: none
  bool good_ = true;
};

}  // namespace VELT::sharing::db
