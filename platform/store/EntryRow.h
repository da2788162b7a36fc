// One row of the table of links, as it is stored.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "LinkStatus.h"
#include "Soci.h"
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

  // What only a new link's first storing sets.
  void MakeNew(const std::string& new_hash, std::int64_t now);
  // Gives the entry the stored link's identity.
  void Identify(record::Entry& entry) const;

  // Bind this row to a statement that stores it, under an id that goes to `new_id`, or that writes
  // it over the stored link with its id. Both return the statement's text.
  std::string BindInsert(soci::statement& statement, long long& new_id);
  std::string BindUpdate(soci::statement& statement);

  long long id = 0;
  std::string hash;
  long long visits = 0;
  long long created_at = 0;
  long long revision = 0;

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

  // Every column with its name, in one order: those that the store alone writes, and the others.
  template <typename Visitor>
  void VisitOwn(Visitor&& visit) {
    visit("id", id);
    visit("hash", hash);
    visit("visits", visits);
    visit("created_at", created_at);
    visit("revision", revision);
  }
  template <typename Visitor>
  void VisitSettable(Visitor&& visit) {
    visit("owner_uid", owner_uid);
    visit("project_name", project_name);
    visit("enabled", enabled);
    visit("auto_gc", auto_gc);
    visit("enable_match_ip", enable_match_ip);
    visit("start_at", start_at);
    visit("expire_at", expire_at);
    visit("expire_times", expire_times);
    visit("protect_type", protect_type);
    visit("protect_title", protect_title);
    visit("password_hash", password_hash);
    visit("protect_users", protect_users);
    visit("protect_groups", protect_groups);
    visit("redirect_type", redirect_type);
    visit("redirect_uri", redirect_uri);
    visit("app", app);
    visit("private_data", private_data);
  }

  // "select <every column> from link", for ReadFrom.
  static const std::string& Select();
  // Binds every column of a Select to this row.
  void ReadFrom(soci::statement& statement);

 private:
  // What of the entry must not be stored, in words; null: nothing.
  static const char* Unstorable(const record::Entry& entry);
};

}  // namespace VELT::sharing::db
