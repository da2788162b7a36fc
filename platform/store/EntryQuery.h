// Translates a Condition to SQL and runs it.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/Soci.h"
#include "veltsharing/Condition.h"
#include "veltsharing/Entry.h"

namespace VELT::sharing::db {

// SQL for a link's project being one that the request may see (StoreContext.h), and its values. Empty
// when it may see all.
std::string AmongProjects();
void BindProjects(soci::statement& statement);

class EntryQuery {
 public:
  explicit EntryQuery(const Condition& condition);

  // False when the condition names a field that Condition.h does not allow, which has been logged.
  bool IsGood() const { return good_; }
  // Both throw soci::soci_error, and Run std::runtime_error for a damaged link.
  void Count(soci::session& sql, int& n) const;
  void Run(soci::session& sql, std::vector<record::Entry>& entries) const;
  // The statement for the ids of a page, with the values as :value0 and so on, :limit and :offset.
  std::string SelectPage(const Dialect& dialect) const;

 private:
  struct Column;
  struct Filter {
    const Column* column;
    std::string text;  // of a text column
    long long number;  // of another
  };

  static const Column* FindColumn(const std::string& field);
  void AddFilter(const std::string& field, const std::string& text);
  void AddOrder(const std::string& field, bool ascending);

  // `ordered`: for the index of the order among an owner's or a project's links.
  std::string Where(const Dialect& dialect, bool ordered) const;
  bool HasOwner() const;
  std::string OrderBy(const Dialect& dialect) const;
  bool IsFixed(const Column* column) const;
  void Bind(soci::statement& statement) const;
  // How many links the filters leave. Empty when they would have to be counted.
  std::optional<long long> KnownCount(soci::session& sql) const;

  std::vector<Filter> filters_;
  std::string search_;  // empty: none
  std::optional<LinkStatus> status_;
  long long now_;
  std::vector<std::pair<const Column*, bool>> order_;  // with whether it ascends
  long long offset_;
  long long limit_;    // negative: none
  bool none_ = false;  // no link can have what a filter wants
  bool good_ = true;
};

}  // namespace VELT::sharing::db
