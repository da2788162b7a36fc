// One row of the table of links.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "LinkStatus.h"
#include "sql/Soci.h"
#include "veltsharing/Entry.h"

namespace VELT::sharing::db {

// An owner's uid that no account has. In a purge it means every owner.
inline constexpr std::uint32_t kEveryOwner = 0xFFFFFFFF;

class EntryRow {
 public:
  // Empty, with a log line, when the entry holds something that can't be stored.
  static std::optional<EntryRow> From(const record::Entry& entry);

  // Throws soci::soci_error.
  static std::optional<EntryRow> FindById(soci::session& sql, long long id);

  // Throws std::runtime_error when the stored form is damaged.
  record::Entry ToEntry() const;

  LinkLimits Limits() const;
  // Whether a visitor needs credentials.
  bool IsProtected() const { return protect_type != 0; }

  // Sets what only a new link's insert sets.
  void MakeNew(const std::string& new_hash, std::int64_t now);
  // Gives the entry the stored link's identity.
  void Identify(record::Entry& entry) const;

  // Completes a row From an updated entry with the `present` row: of the columns that an update may
  // change, it keeps those whose field was set. False, with a log line, when the result lacks
  // something that its types need. Two updates that are right on their own can cause that.
  bool MergeOnto(const EntryRow& present);

  // Bind this row to a statement and return its SQL: an insert, which leaves the link's id in
  // `new_id`, or an update of the link with the row's id.
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

  // Visit every column with its name, in one order: first those that only the store writes, then
  // the others with the entry's field that they hold.
  template <typename Visitor>
  void VisitOwn(Visitor&& visit);
  template <typename Visitor>
  static void VisitSettable(Visitor&& visit);

  // Names, for a log line, a part of the entry that can't be stored; null when there is none.
  static const char* Unstorable(const record::Entry& entry);
  // Names what the link's types need and the row lacks, the same way.
  const char* Missing() const;
  // Whether both rows let in the same visitors with the same credentials.
  bool ProtectsAs(const EntryRow& other) const;
};

}  // namespace VELT::sharing::db
