#include "platform/store/EntryQuery.h"

#include <syslog.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/store/LocalTime.h"
#include "platform/store/LogText.h"
#include "platform/store/StoreContext.h"
#include "platform/store/TypeTexts.h"
#include "platform/store/sql/EntryRow.h"
#include "platform/store/sql/LinkCounts.h"
#include "platform/store/sql/Statement.h"
#include "veltsharing/Keys.h"
#include "veltsys/Text.h"

namespace VELT::sharing::db {
namespace {

constexpr std::size_t kLeastOfId = 6;  // characters of an id that find it, as many as logs have

enum class Kind { kId, kText, kNumber, kBool, kTime, kProtectType, kRedirectType };

}  // namespace

struct EntryQuery::Column {
  std::string_view field;  // its name in Entry::ToJSON
  const char* name;        // its name in the table
  Kind kind;

  bool IsText() const { return kind == Kind::kId || kind == Kind::kText; }
  bool operator==(std::string_view other) const { return field == other; }
};

// The JSON form's other members are lists, objects, or computed when they are read. A status can
// change between two pages and so can't order them.
const EntryQuery::Column* EntryQuery::FindColumn(const std::string& field) {
  static constexpr std::array<Column, 15> kColumns = {{
      {"sharing_id", "hash", Kind::kId},
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
  const auto* column = std::find_if(kColumns.begin(), kColumns.end(),
                                    [&field](const Column& each) { return each.field == field; });
  if (column != kColumns.end()) return column;
  syslog(LOG_ERR, "sharing store: links can't be filtered or sorted by \"%s\"",
         Printable(field, 32).c_str());
  return nullptr;
}

namespace {

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
    case Kind::kId:
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
    : search_(condition.search_),
      status_(condition.status_),
      now_(Now()),
      offset_(std::max(condition.offset_, 0)),
      limit_(condition.limit_),
      none_(!IsCleanText(condition.search_)) {
  for (const auto& [field, text] : condition.where_) AddFilter(field, text);
  for (const auto& [field, ascending] : condition.order_) AddOrder(field, ascending);
}

void EntryQuery::AddFilter(const std::string& field, const std::string& text) {
  const Column* column = FindColumn(field);
  if (column == nullptr) {
    good_ = false;
  } else if (column->IsText()) {
    if (!IsCleanText(text)) none_ = true;
    filters_.push_back({column, text, 0});
  } else {
    const auto number = StoredNumber(column->kind, text);
    if (!number) none_ = true;
    filters_.push_back({column, "", number.value_or(0)});
  }
}

void EntryQuery::AddOrder(const std::string& field, bool ascending) {
  const Column* column = FindColumn(field);
  if (column == nullptr) {
    good_ = false;
    return;
  }
  order_.emplace_back(column, ascending);
}

std::string AmongProjects() {
  std::string text;
  for (std::size_t index = 0; index < CurrentView().projects.size(); ++index) {
    text += (index == 0 ? "project_name in (:among" : ", :among") + std::to_string(index);
  }
  return text.empty() ? text : text + ")";
}

void BindProjects(soci::statement& statement) {
  std::size_t index = 0;
  for (const std::string& project : CurrentView().projects) {
    statement.exchange(soci::use(project, "among" + std::to_string(index++)));
  }
}

namespace {

// Makes PostgreSQL use the index of a long text's start.
std::string StartEquals(const Dialect& dialect, const std::string& column,
                        const std::string& value) {
  if (*dialect.before_text_key == '\0') return "";
  const auto start = [&dialect](const std::string& text) {
    return dialect.before_text_key + text + dialect.after_text_key;
  };
  return start(column) + " = " + start(value) + " and ";
}

// The same as StatusAt. "<>" keeps the index of `enabled`, which is so of most links, from being
// preferred to that of the order.
const char* IsInState(LinkStatus status) {
  switch (status) {
    case LinkStatus::kDisabled:
      return "enabled = 0";
    case LinkStatus::kExpired:
      return "enabled <> 0 and expire_at <> 0 and expire_at < :now";
    case LinkStatus::kPending:
      return "enabled <> 0 and (expire_at = 0 or expire_at >= :now) and start_at > :now";
    case LinkStatus::kUsedUp:
      return "enabled <> 0 and (expire_at = 0 or expire_at >= :now) and start_at <= :now and "
             "expire_times <> 0 and visits >= expire_times";
    case LinkStatus::kActive:
      return "enabled <> 0 and (expire_at = 0 or expire_at >= :now) and start_at <= :now and "
             "(expire_times = 0 or visits < expire_times)";
  }
  return "";
}

}  // namespace

std::string EntryQuery::Where(const Dialect& dialect, bool ordered) const {
  if (none_) return " where 1 = 0";
  std::string text;
  for (std::size_t index = 0; index < filters_.size(); ++index) {
    const std::string value = ":value" + std::to_string(index);
    const Column& column = *filters_[index].column;
    text += text.empty() ? " where " : " and ";
    if (column == SZK_PROJECT_NAME) {
      text += ordered && HasOwner() ? dialect.unindexed : StartEquals(dialect, column.name, value);
    }
    text += column.name + (" = " + value);
  }
  const std::string projects = AmongProjects();
  if (!projects.empty()) {
    text +=
        (text.empty() ? " where " : " and ") + (ordered ? dialect.unindexed + projects : projects);
  }
  if (status_) text += (text.empty() ? " where " : " and ") + std::string(IsInState(*status_));
  if (search_.empty()) return text;
  text += text.empty() ? " where (" : " and (";
  if (search_.size() >= kLeastOfId) text += "substr(hash, 1, length(:search)) = :search or ";
  return text + dialect.contains_search + ")";
}

bool EntryQuery::HasOwner() const {
  return std::ranges::any_of(filters_,
                             [](const Filter& filter) { return *filter.column == SZK_OWNER_UID; });
}

bool EntryQuery::IsFixed(const Column* column) const {
  return std::any_of(filters_.begin(), filters_.end(),
                     [column](const Filter& filter) { return filter.column == column; });
}

// Equal values follow each other by id, in the direction of the first column: so an index gives
// either direction. What a filter fixes orders nothing, and behind a link's id nothing does.
std::string EntryQuery::OrderBy(const Dialect& dialect) const {
  std::string text = " order by ";
  for (const auto& [column, ascending] : order_) {
    if (IsFixed(column)) continue;
    const bool is_key = column->kind == Kind::kText;
    text += std::string(is_key ? dialect.before_text_key : "") + column->name +
            (is_key ? dialect.after_text_key : "") + (ascending ? "" : " desc");
    if (column->kind == Kind::kId) return text;
    text += ", ";
  }
  return text + (order_.empty() || order_.front().second ? "id" : "id desc");
}

void EntryQuery::Bind(soci::statement& statement) const {
  if (none_) return;
  for (std::size_t index = 0; index < filters_.size(); ++index) {
    const std::string name = "value" + std::to_string(index);
    const Filter& filter = filters_[index];
    if (filter.column->IsText()) {
      statement.exchange(soci::use(filter.text, name));
    } else {
      statement.exchange(soci::use(filter.number, name));
    }
  }
  BindProjects(statement);
  if (status_ && *status_ != LinkStatus::kDisabled) statement.exchange(soci::use(now_, "now"));
  if (!search_.empty()) statement.exchange(soci::use(search_, "search"));
}

std::optional<long long> EntryQuery::KnownCount(soci::session& sql) const {
  if (!CurrentView().projects.empty() || !search_.empty() || status_) return std::nullopt;
  std::optional<long long> owner;
  std::optional<std::string> project;
  for (const Filter& filter : filters_) {
    if (*filter.column == SZK_OWNER_UID && !owner) {
      owner = filter.number;
    } else if (*filter.column == SZK_PROJECT_NAME && !project) {
      project = filter.text;
    } else {
      return std::nullopt;
    }
  }
  return none_ ? 0 : CountLinks(sql, owner, project);
}

void EntryQuery::Count(soci::session& sql, int& n) const {
  auto count = KnownCount(sql);
  if (!count) {
    count = 0;
    soci::statement statement(sql);
    statement.exchange(soci::into(*count));
    Bind(statement);
    Prepare(statement, "select count(*) from link" + Where(DialectOf(sql), false));
    statement.execute(true);
  }
  n = static_cast<int>(std::min<long long>(*count, std::numeric_limits<int>::max()));
}

// An index alone gives the page's ids; only the page's own rows are read from the table.
std::string EntryQuery::SelectPage(const Dialect& dialect) const {
  const bool ordered =
      std::ranges::any_of(order_, [this](const auto& order) { return !IsFixed(order.first); });
  return "select id from link" + Where(dialect, ordered) + OrderBy(dialect) +
         " limit :limit offset :offset";
}

void EntryQuery::Run(soci::session& sql, std::vector<record::Entry>& entries) const {
  const Dialect& dialect = DialectOf(sql);
  const long long limit = limit_ < 0 ? std::numeric_limits<long long>::max() : limit_;
  const bool paged = offset_ > 0 || limit_ >= 0;
  EntryRow row;
  soci::statement statement(sql);
  row.ReadFrom(statement);
  Bind(statement);
  if (paged) {
    statement.exchange(soci::use(limit, "limit"));
    statement.exchange(soci::use(offset_, "offset"));
  }
  Prepare(statement,
          EntryRow::Select() +
              (paged ? " where id in (" + SelectPage(dialect) + ")" : Where(dialect, false)) +
              OrderBy(dialect));
  statement.execute();
  while (statement.fetch()) entries.push_back(row.ToEntry());
}

}  // namespace VELT::sharing::db
