#include "platform/store/sql/EntryRow.h"

#include <json/writer.h>
#include <syslog.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "platform/store/sql/Statement.h"
#include "veltsys/JsonText.h"
#include "veltsys/Text.h"

namespace VELT::sharing::db {
namespace {

using record::Entry;

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

std::string WriteList(const std::vector<std::string>& list) {
  Json::Value array(Json::arrayValue);
  for (const std::string& text : list) array.append(text);
  return WriteJson(array);
}

std::vector<std::string> ReadList(const std::string& text) {
  const Json::Value array = ReadJson(text);
  std::vector<std::string> list;
  for (const Json::Value& element : array) list.push_back(element.asString());
  return list;
}

template <typename Enum>
Enum ReadEnum(long long value) {
  if (value < 0 || value > 2) throw std::runtime_error("damaged link");
  return static_cast<Enum>(value);
}

// Whether the stored text could be read again.
bool IsStorableJson(const Json::Value& value) {
  Json::Value again;
  return IsCleanJson(value) && ParseJsonText(WriteJson(value), again);
}

bool AreClean(const std::vector<std::string>& texts) {
  return std::all_of(texts.begin(), texts.end(), IsCleanText);
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

template <typename Visitor>
void EntryRow::VisitSettable(Visitor&& visit) {
  visit(Field::kOwnerUid, "owner_uid", &EntryRow::owner_uid);
  visit(Field::kProjectName, "project_name", &EntryRow::project_name);
  visit(Field::kEnabled, "enabled", &EntryRow::enabled);
  visit(Field::kAutoGc, "auto_gc", &EntryRow::auto_gc);
  visit(Field::kEnableMatchIp, "enable_match_ip", &EntryRow::enable_match_ip);
  visit(Field::kStartAt, "start_at", &EntryRow::start_at);
  visit(Field::kExpireAt, "expire_at", &EntryRow::expire_at);
  visit(Field::kExpireTimes, "expire_times", &EntryRow::expire_times);
  visit(Field::kProtectType, "protect_type", &EntryRow::protect_type);
  visit(Field::kProtectTitle, "protect_title", &EntryRow::protect_title);
  visit(Field::kPassword, "password_hash", &EntryRow::password_hash);
  visit(Field::kProtectUsers, "protect_users", &EntryRow::protect_users);
  visit(Field::kProtectGroups, "protect_groups", &EntryRow::protect_groups);
  visit(Field::kRedirectType, "redirect_type", &EntryRow::redirect_type);
  visit(Field::kRedirectUri, "redirect_uri", &EntryRow::redirect_uri);
  visit(Field::kApp, "app", &EntryRow::app);
  visit(Field::kPrivateData, "private_data", &EntryRow::private_data);
}

const char* EntryRow::Unstorable(const Entry& entry) {
  if (!entry.writable_) return "a time";
  if (entry.password_refused_) return "the password";
  if (entry.owner_uid_ == kEveryOwner) return "the owner";
  if (!IsCleanText(entry.project_name_)) return "the project name";
  if (!IsCleanText(entry.protect_title_)) return "the title";
  if (!IsCleanText(entry.redirect_uri_)) return "the redirect address";
  if (!AreClean(entry.protect_users_)) return "the users";
  if (!AreClean(entry.protect_groups_)) return "the groups";
  if (!IsStorableJson(entry.app_)) return "the application data";
  if (!IsStorableJson(entry.private_data_)) return "the private data";
  return nullptr;
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
  row.owner_uid = entry.owner_uid_;
  row.project_name = entry.project_name_;
  row.enabled = entry.enabled_ ? 1 : 0;
  row.auto_gc = entry.auto_gc_ ? 1 : 0;
  row.enable_match_ip = entry.enable_match_ip_ ? 1 : 0;
  row.start_at = entry.start_at_;
  row.expire_at = entry.expire_at_;
  row.expire_times = entry.expire_times_;
  row.protect_type = static_cast<long long>(entry.protect_type_);
  row.protect_title = entry.protect_title_;
  row.password_hash = entry.password_hash_;
  row.protect_users = WriteList(entry.protect_users_);
  row.protect_groups = WriteList(entry.protect_groups_);
  row.redirect_type = static_cast<long long>(entry.redirect_type_);
  row.redirect_uri = entry.redirect_uri_;
  row.app = WriteJson(entry.app_);
  row.private_data = WriteJson(entry.private_data_);
  return row;
}

Entry EntryRow::ToEntry() const {
  Entry entry;
  entry.id_ = id;
  entry.hash_ = hash;
  entry.visits_ = static_cast<int>(visits);
  entry.created_at_ = created_at;
  entry.owner_uid_ = static_cast<unsigned int>(owner_uid);
  entry.project_name_ = project_name;
  entry.enabled_ = enabled != 0;
  entry.auto_gc_ = auto_gc != 0;
  entry.enable_match_ip_ = enable_match_ip != 0;
  entry.start_at_ = start_at;
  entry.expire_at_ = expire_at;
  entry.expire_times_ = static_cast<int>(expire_times);
  entry.protect_type_ = ReadEnum<Entry::ProtectType>(protect_type);
  entry.protect_title_ = protect_title;
  entry.password_hash_ = password_hash;
  entry.protect_users_ = ReadList(protect_users);
  entry.protect_groups_ = ReadList(protect_groups);
  entry.redirect_type_ = ReadEnum<Entry::RedirectType>(redirect_type);
  entry.redirect_uri_ = redirect_uri;
  entry.app_ = ReadJson(app);
  entry.private_data_ = ReadJson(private_data);
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
  VisitSettable([this, &stored](Field field, const char*, auto column) {
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
  VisitSettable([this, &add](Field, const char* name, auto column) { add(name, this->*column); });
  statement.exchange(soci::into(new_id));
  return "insert into link (" + names + ") values (" + values + ") returning id";
}

std::string EntryRow::BindUpdate(soci::statement& statement) {
  std::string changes;
  const auto add = [&](const std::string& name, auto& value) {
    changes += (changes.empty() ? "" : ", ") + name + " = :" + name;
    statement.exchange(soci::use(value, name));
  };
  VisitSettable([this, &add](Field field, const char* name, auto column) {
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
    VisitSettable([&](Field, const char* name, auto column) { add(name, row.*column); });
    return "select " + names + " from link";
  }();
  return select;
}

void EntryRow::ReadFrom(soci::statement& statement) {
  const auto into = [&statement](const char*, auto& value) {
    statement.exchange(soci::into(value));
  };
  VisitOwn(into);
  VisitSettable([this, &into](Field, const char* name, auto column) { into(name, this->*column); });
}

}  // namespace VELT::sharing::db
