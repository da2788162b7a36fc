#include "EntryQuery.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>

#include "LocalTime.h"
#include "LogText.h"
#include "TypeTexts.h"
#include "sql/EntryRow.h"
#include "sql/Statement.h"
#include "veltsys/Text.h"

namespace VELT::sharing::db {
namespace {

enum class Kind { kText, kNumber, kBool, kTime, kProtectType, kRedirectType };

struct Column {
  std::string_view field;  // its name in Entry::ToJSON
  const char* name;        // its name in the table
  Kind kind;
};

// The other members of the JSON form are lists, objects, or computed when they are read. A status
// can change between two pages of a list, so lists can't be sorted by it.
constexpr std::array<Column, 15> kColumns = {{
    {"sharing_id", "hash", Kind::kText},
    {"project_name", "project_name", Kind::kText},
    {"owner_uid", "owner_uid", Kind::kNumber},
    {"enabled", "enabled", Kind::kBool},
    {"auto_gc", "auto_gc", Kind::kBool},
    {"enable_match_ip", "enable_match_ip", Kind::kBool},
    {"start_at", "start_at", Kind::kTime},
    {"expire_at", "expire_at", Kind::kTime},
    {"expire_times", "expire_times", Kind::kNumber},
    {"visits", "visits", Kind::kNumber},
    {"protect_type", "protect_type", Kind::kProtectType},
    {"protect_title", "protect_title", Kind::kText},
    {"redirect_type", "redirect_type", Kind::kRedirectType},
    {"redirect_uri", "redirect_uri", Kind::kText},
    {"created_at", "created_at", Kind::kTime},
}};

const Column* FindColumn(const std::string& field) {
  const auto* column = std::find_if(kColumns.begin(), kColumns.end(),
                                    [&field](const Column& each) { return each.field == field; });
  if (column != kColumns.end()) return column;
  syslog(LOG_ERR, "sharing store: links can't be filtered or sorted by \"%s\"",
         Printable(field, 32).c_str());
  return nullptr;
}

template <typename Texts>
std::optional<long long> IndexOf(const Texts& texts, std::string_view text) {
  const auto found = std::find(texts.begin(), texts.end(), text);
  if (found == texts.end()) return std::nullopt;
  return found - texts.begin();
}

std::optional<long long> ParseNumber(const std::string& text) {
  long long number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

// The stored form of a value that ToJSON shows as `text`; empty when no link can have it.
std::optional<long long> StoredNumber(Kind kind, const std::string& text) {
  switch (kind) {
    case Kind::kText:
      return std::nullopt;
    case Kind::kNumber:
      return ParseNumber(text);
    case Kind::kBool:
      return IndexOf(std::array{"false", "true"}, text);
    case Kind::kTime:
      return text.empty() ? 0 : ParseLocalTime(text, kTimeFormat);
    case Kind::kProtectType:
      return IndexOf(kProtectTypeTexts, text);
    case Kind::kRedirectType:
      return IndexOf(kRedirectTypeTexts, text);
  }
  return std::nullopt;
}

}  // namespace

EntryQuery::EntryQuery(const Condition& condition)
    : offset_(std::max(condition.offset_, 0)), limit_(condition.limit_) {
  for (const auto& [field, text] : condition.where_) AddFilter(field, text);
  for (const auto& [field, ascending] : condition.order_) AddOrder(field, ascending);
  order_ += order_.empty() ? " order by id" : ", id";
}

void EntryQuery::AddFilter(const std::string& field, const std::string& text) {
  const Column* column = FindColumn(field);
  if (column == nullptr) {
    good_ = false;
    return;
  }
  const bool is_text = column->kind == Kind::kText;
  const auto number = is_text ? 0 : StoredNumber(column->kind, text);
  where_ += where_.empty() ? " where " : " and ";
  if (!number || (is_text && !IsCleanText(text))) {
    where_ += "1 = 0";
    return;
  }
  where_ += std::string(column->name) + " = :value" + std::to_string(values_.size());
  values_.push_back({is_text, text, *number});
}

void EntryQuery::AddOrder(const std::string& field, bool ascending) {
  const Column* column = FindColumn(field);
  if (column == nullptr) {
    good_ = false;
    return;
  }
  order_ += order_.empty() ? " order by " : ", ";
  order_ += column->name;
  if (!ascending) order_ += " desc";
}

void EntryQuery::Bind(soci::statement& statement) const {
  for (std::size_t index = 0; index < values_.size(); ++index) {
    const std::string name = "value" + std::to_string(index);
    if (values_[index].is_text) {
      statement.exchange(soci::use(values_[index].text, name));
    } else {
      statement.exchange(soci::use(values_[index].number, name));
    }
  }
}

void EntryQuery::Count(soci::session& sql, int& n) const {
  soci::statement statement(sql);
  long long count = 0;
  statement.exchange(soci::into(count));
  Bind(statement);
  Prepare(statement, "select count(*) from link" + where_);
  statement.execute(true);
  n = static_cast<int>(std::min<long long>(count, std::numeric_limits<int>::max()));
}

void EntryQuery::Run(soci::session& sql, std::vector<record::Entry>& entries) const {
  // The ids of a page come from the index link_list alone, so only the rows of the page are read
  // from the table.
  std::string text = EntryRow::Select() + where_;
  const long long limit = limit_ < 0 ? std::numeric_limits<long long>::max() : limit_;
  const bool paged = offset_ > 0 || limit_ >= 0;
  if (paged) {
    text = EntryRow::Select() + " where id in (select id from link" + where_ + order_ +
           " limit :limit offset :offset)";
  }
  EntryRow row;
  soci::statement statement(sql);
  row.ReadFrom(statement);
  Bind(statement);
  if (paged) {
    statement.exchange(soci::use(limit, "limit"));
    statement.exchange(soci::use(offset_, "offset"));
  }
  Prepare(statement, text + order_);
  statement.execute();
  while (statement.fetch()) entries.push_back(row.ToEntry());
}

}  // namespace VELT::sharing::db
