// One row of the table of links.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/store/LinkStatus.h"
#include "platform/store/sql/Soci.h"
#include "veltsharing/Entry.h"

namespace VELT::sharing::db {

// An owner's uid that no account has. In a purge it means every owner.
inline constexpr std::uint32_t kEveryOwner = 0xFFFFFFFF;

class EntryRow {
 public:
  // Empty, with a log line, when the entry holds something that can't be stored.
  static std::optional<EntryRow> From(const record::Entry& entry);

  // Throws std::runtime_error when the stored form is damaged.
  record::Entry ToEntry() const;

  LinkLimits Limits() const;
  // Whether a visitor needs credentials.
  bool IsProtected() const { return protect_type != 0; }

  // Sets what only a new link's insert sets.
  void MakeNew(const std::string& new_hash, std::int64_t now);
  // Sets in `entry` what the store has given the new link, and marks its fields as unchanged.
  void Identify(record::Entry& entry) const;

  // Completes a row that From made of an updated entry: columns whose field was not set get the
  // value of the `stored` row. False, with a log line, when the result lacks something that its
  // types need, which two updates can cause that are each valid alone.
  bool MergeOnto(const EntryRow& stored);

  // Bind this row to a statement and return its SQL: an insert, which sets `new_id` to the link's
  // id, or an update of the changed columns of the link with the row's id. The row must outlive the
  // statement.
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
  // Binds every column of a Select to this row, which must outlive the statement.
  void ReadFrom(soci::statement& statement);

 private:
  using Entry = record::Entry;
  using Field = Entry::Field;

  // Both call `visit` for each column with its name, always in the same order: VisitOwn for those
  // that only the store sets, VisitSettable for the others, with the entry's field and its value.
  template <typename Visitor>
  void VisitOwn(Visitor&& visit);
  template <typename Visitor>
  static void VisitSettable(Visitor&& visit) {
    visit(Field::kOwnerUid, "owner_uid", &EntryRow::owner_uid, &Entry::owner_uid_);
    visit(Field::kProjectName, "project_name", &EntryRow::project_name, &Entry::project_name_);
    visit(Field::kEnabled, "enabled", &EntryRow::enabled, &Entry::enabled_);
    visit(Field::kAutoGc, "auto_gc", &EntryRow::auto_gc, &Entry::auto_gc_);
    visit(Field::kEnableMatchIp, "enable_match_ip", &EntryRow::enable_match_ip,
          &Entry::enable_match_ip_);
    visit(Field::kStartAt, "start_at", &EntryRow::start_at, &Entry::start_at_);
    visit(Field::kExpireAt, "expire_at", &EntryRow::expire_at, &Entry::expire_at_);
    visit(Field::kExpireTimes, "expire_times", &EntryRow::expire_times, &Entry::expire_times_);
    visit(Field::kProtectType, "protect_type", &EntryRow::protect_type, &Entry::protect_type_);
    visit(Field::kProtectTitle, "protect_title", &EntryRow::protect_title, &Entry::protect_title_);
    visit(Field::kPassword, "password_hash", &EntryRow::password_hash, &Entry::password_hash_);
    visit(Field::kProtectUsers, "protect_users", &EntryRow::protect_users, &Entry::protect_users_);
    visit(Field::kProtectGroups, "protect_groups", &EntryRow::protect_groups,
          &Entry::protect_groups_);
    visit(Field::kRedirectType, "redirect_type", &EntryRow::redirect_type, &Entry::redirect_type_);
    visit(Field::kRedirectUri, "redirect_uri", &EntryRow::redirect_uri, &Entry::redirect_uri_);
    visit(Field::kApp, "app", &EntryRow::app, &Entry::app_);
    visit(Field::kPrivateData, "private_data", &EntryRow::private_data, &Entry::private_data_);
  }

  // The name, for a log line, of a part of the entry that can't be stored; null when there is none.
  static const char* Unstorable(const record::Entry& entry);
  // The name of what the link's types need but the row lacks; null when there is nothing.
  const char* Missing() const;
  // Whether both rows admit the same visitors with the same credentials.
  bool ProtectsAs(const EntryRow& other) const;
};

}  // namespace VELT::sharing::db
