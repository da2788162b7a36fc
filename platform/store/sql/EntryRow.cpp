#include "platform/store/sql/EntryRow.h"

#include <json/writer.h>
#include <syslog.h>

#include <algorithm>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "platform/store/sql/Statement.h"
#include "veltsys/JsonText.h"
#include "veltsys/Text.h"

namespace VELT::sharing::db {
namespace {

using record::Entry;
using Names = std::vector<std::string>;

constexpr const char* kEmptyList = "[]";  // as WriteList writes it

std::string WriteJson(const Json::Value& value) {
  static const Json::StreamWriterBuilder builder = [] {
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    compact["emitUTF8"] = true;
    return compact;
  }();
  return Json::writeString(builder, value);
}

Json::Value ReadJson(const std::string& text) {
  Json::Value value;
  if (!ParseJsonText(text, value)) throw std::runtime_error("damaged link");
  return value;
}

std::string WriteList(const Names& list) {
  Json::Value array(Json::arrayValue);
  for (const std::string& text : list) array.append(text);
  return WriteJson(array);
}

Names ReadList(const std::string& text) {
  const Json::Value array = ReadJson(text);
  Names list;
  for (const Json::Value& element : array) list.push_back(element.asString());
  return list;
}

template <typename Enum>
Enum ReadEnum(long long value) {
  if (value < 0 || value > 2) throw std::runtime_error("damaged link");
  return static_cast<Enum>(value);
}

// The stored form of an entry's value of each type, and whether it has one that can be read again.
void Store(const std::string& value, std::string& column) { column = value; }
void Load(const std::string& column, std::string& value) { value = column; }
bool IsStorable(const std::string& value) { return IsCleanText(value); }

void Store(const Names& value, std::string& column) { column = WriteList(value); }
void Load(const std::string& column, Names& value) { value = ReadList(column); }
bool IsStorable(const Names& value) { return std::all_of(value.begin(), value.end(), IsCleanText); }

void Store(const Json::Value& value, std::string& column) { column = WriteJson(value); }
void Load(const std::string& column, Json::Value& value) { value = ReadJson(column); }
bool IsStorable(const Json::Value& value) {
  Json::Value again;
  return IsCleanJson(value) && ParseJsonText(WriteJson(value), again);
}

template <typename Number>
void Store(Number value, long long& column) {
  column = static_cast<long long>(value);
}
template <typename Number>
void Load(long long column, Number& value) {
  if constexpr (std::is_enum_v<Number>) {
    value = ReadEnum<Number>(column);
  } else {
    value = static_cast<Number>(column);
  }
}
template <typename Number>
bool IsStorable(const Number&) {
  return true;
}

}  // namespace

template <typename Visitor>
void EntryRow::VisitOwn(Visitor&& visit) {
  visit("id", id);
  visit("hash", hash);
  visit("visits", visits);
  visit("created_at", created_at);
  visit("revision", revision);
  visit("protection", protection);
}

const char* EntryRow::Unstorable(const Entry& entry) {
  if (!entry.writable_) return "a time";
  if (entry.password_refused_) return "the password";
  if (entry.owner_uid_ == kEveryOwner) return "the owner";
  const char* unstorable = nullptr;
  VisitSettable([&entry, &unstorable](Field, const char* name, auto, auto value) {
    if (unstorable == nullptr && !IsStorable(entry.*value)) unstorable = name;
  });
  return unstorable;
}

std::optional<EntryRow> EntryRow::From(const Entry& entry) {
  if (const char* part = Unstorable(entry); part != nullptr) {
    syslog(LOG_ERR, "sharing store: %s of a link can't be stored", part);
    return std::nullopt;
  }
  EntryRow row;
  row.id = entry.id_;
  row.hash = entry.hash_;
  row.changed = entry.changed_;
  VisitSettable([&row, &entry](Field, const char*, auto column, auto value) {
    Store(entry.*value, row.*column);
  });
  return row;
}

Entry EntryRow::ToEntry() const {
  Entry entry;
  entry.id_ = id;
  entry.hash_ = hash;
  entry.visits_ = static_cast<int>(visits);
  entry.created_at_ = created_at;
  VisitSettable([this, &entry](Field, const char*, auto column, auto value) {
    Load(this->*column, entry.*value);
  });
  return entry;
}

LinkLimits EntryRow::Limits() const {
  return {enabled != 0, start_at, expire_at, expire_times, visits};
}

void EntryRow::MakeNew(const std::string& new_hash, std::int64_t now) {
  hash = new_hash;
  visits = 0;
  created_at = now;
  revision = 0;
}

void EntryRow::Identify(Entry& entry) const {
  entry.id_ = id;
  entry.hash_ = hash;
  entry.visits_ = static_cast<int>(visits);
  entry.created_at_ = created_at;
  entry.changed_ = 0;
}

bool EntryRow::MergeOnto(const EntryRow& stored) {
  id = stored.id;
  revision = stored.revision + 1;
  VisitSettable([this, &stored](Field field, const char*, auto column, auto) {
    if ((changed & Entry::Bit(field)) == 0) this->*column = stored.*column;
  });
  protection = stored.protection + (ProtectsAs(stored) ? 0 : 1);
  const char* missing = Missing();
  if (missing != nullptr) {
    syslog(LOG_ERR, "sharing store: an update would leave a link without %s", missing);
  }
  return missing == nullptr;
}

const char* EntryRow::Missing() const {
  if (protect_type == static_cast<int>(Entry::ProtectType::kPassword) && password_hash.empty()) {
    return "its password";
  }
  if (protect_type == static_cast<int>(Entry::ProtectType::kUser) && protect_users == kEmptyList &&
      protect_groups == kEmptyList) {
    return "its users";
  }
  if (redirect_type != static_cast<int>(Entry::RedirectType::kNone) && redirect_uri.empty()) {
    return "its redirect address";
  }
  return nullptr;
}

bool EntryRow::ProtectsAs(const EntryRow& other) const {
  if (protect_type != other.protect_type) return false;
  switch (ReadEnum<Entry::ProtectType>(protect_type)) {
    case Entry::ProtectType::kNone:
      return true;
    case Entry::ProtectType::kPassword:
      return password_hash == other.password_hash;
    case Entry::ProtectType::kUser:
      return protect_users == other.protect_users && protect_groups == other.protect_groups;
  }
  return false;
}

std::string EntryRow::BindInsert(soci::statement& statement, long long& new_id) {
  std::string names;
  std::string values;
  const auto add = [&](const std::string& name, auto& value) {
    if (name == "id") return;
    names += (names.empty() ? "" : ", ") + name;
    values += (values.empty() ? ":" : ", :") + name;
    statement.exchange(soci::use(value, name));
  };
  VisitOwn(add);
  VisitSettable(
      [this, &add](Field, const char* name, auto column, auto) { add(name, this->*column); });
  statement.exchange(soci::into(new_id));
  return "insert into link (" + names + ") values (" + values + ") returning id";
}

std::string EntryRow::BindUpdate(soci::statement& statement) {
  std::string changes;
  const auto add = [&](const std::string& name, auto& value) {
    changes += (changes.empty() ? "" : ", ") + name + " = :" + name;
    statement.exchange(soci::use(value, name));
  };
  VisitSettable([this, &add](Field field, const char* name, auto column, auto) {
    if ((changed & Entry::Bit(field)) != 0) add(name, this->*column);
  });
  add("protection", protection);
  add("revision", revision);
  statement.exchange(soci::use(id, "id"));
  return "update link set " + changes + " where id = :id";
}

const std::string& EntryRow::Select() {
  static const std::string select = [] {
    std::string names;
    const auto add = [&names](const std::string& name, const auto&) {
      names += (names.empty() ? "" : ", ") + name;
    };
    EntryRow row;
    row.VisitOwn(add);
    VisitSettable([&](Field, const char* name, auto column, auto) { add(name, row.*column); });
    return "select " + names + " from link";
  }();
  return select;
}

void EntryRow::ReadFrom(soci::statement& statement) {
  const auto into = [&statement](const char*, auto& value) {
    statement.exchange(soci::into(value));
  };
  VisitOwn(into);
  VisitSettable(
      [this, &into](Field, const char* name, auto column, auto) { into(name, this->*column); });
}

}  // namespace VELT::sharing::db
