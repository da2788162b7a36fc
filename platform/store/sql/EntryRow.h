// One row of the table of links, as it is stored.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "LinkStatus.h"
#include "sql/Soci.h"
#include "veltsharing/Entry.h"

namespace VELT::sharing::db {

// An owner's uid that no account has: it asks for everybody's links.
inline constexpr std::uint32_t kEveryOwner = 0xFFFFFFFF;

class EntryRow {
 public:
  // Empty when the entry holds something that must not be stored.
  static std::optional<EntryRow> From(const record::Entry& entry);

  static std::optional<EntryRow> FindById(soci::session& sql, long long id);

  // Throws std::runtime_error when the stored form is damaged.
  record::Entry ToEntry() const;

  LinkLimits Limits() const;
  // Whether a visitor needs credentials.
  bool IsProtected() const { return protect_type != 0; }

  // What only a new link's first storing sets.
  void MakeNew(const std::string& new_hash, std::int64_t now);
  // Gives the entry the stored link's identity.
  void Identify(record::Entry& entry) const;

  // Makes this row, which is From an entry, what an update with that entry makes of the `present`
  // row: the fields that were set in it, and all else as it is. False, with a log line, when that
  // would lack something that the link's types ask for: two updates that were each right can do so.
  bool MergeOnto(const EntryRow& present);

  // Bind this row to a statement that stores it, under an id that goes to `new_id`, or that writes
  // it over the stored link with its id. Both return the statement's text.
  std::string BindInsert(soci::statement& statement, long long& new_id);
  std::string BindUpdate(soci::statement& statement);

  long long id = 0;
  std::string hash;
  long long visits = 0;
  long long created_at = 0;
  long long revision = 0;
  long long protection = 0;

  long long owner_uid = 0;
  std::string project_name;
  long long enabled = 0;
  long long auto_gc = 0;
  long long enable_match_ip = 0;
  long long start_at = 0;
  long long expire_at = 0;
  long long expire_times = 0;
  long long protect_type = 0;
  std::string protect_title;
  std::string password_hash;
  std::string protect_users;
  std::string protect_groups;
  long long redirect_type = 0;
  std::string redirect_uri;
  std::string app;
  std::string private_data;

  unsigned int changed = 0;  // Entry::changed_

  // "select <every column> from link", for ReadFrom.
  static const std::string& Select();
  // Binds every column of a Select to this row.
  void ReadFrom(soci::statement& statement);

 private:
  using Field = record::Entry::Field;

  // Every column with its name, in one order: those that the store alone writes, and the others,
  // with the field that they hold.
  template <typename Visitor>
  void VisitOwn(Visitor&& visit) {
    visit("id", id);
    visit("hash", hash);
    visit("visits", visits);
    visit("created_at", created_at);
    visit("revision", revision);
    visit("protection", protection);
  }
  template <typename Visitor>
  static void VisitSettable(Visitor&& visit) {
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

  // What of the entry must not be stored, in words; null: nothing.
  static const char* Unstorable(const record::Entry& entry);
  // What the link's types ask for and the row lacks, the same way.
  const char* Missing() const;
  bool ProtectsAs(const EntryRow& other) const;
};

}  // namespace VELT::sharing::db
