#include "EntryQuery.h"
#include "Secrets.h"
#include "StoreContext.h"
#include "Visitors.h"
#include "sql/Connection.h"
#include "sql/EntryRow.h"
#include "sql/Statement.h"
#include "veltsharing/SharingDB.h"

namespace VELT::sharing::db {
EntryDB::EntryDB(BaseDB& db) : db_(db), condition_(std::make_unique<Condition>()) {}
EntryDB::~EntryDB() = default;

bool EntryDB::GetByHash(const std::string& hash, record::Entry& entry) {
  entry = record::Entry();
  Connection& connection = Connection::Of(db_);
  return IsLinkId(hash) && connection.Run("read a link", [&](soci::session&) {
    const EntryRow* row =
        IsVisitor() ? connection.kept().FindEnabledLink(hash) : connection.kept().FindLink(hash);
    if (row == nullptr || (IsVisitor() && !OwnerExists(row->owner_uid))) return false;
    entry = row->ToEntry();
    return true;
  });
}

bool EntryDB::CreateWithHash(record::Entry& entry) {
  Connection& connection = Connection::Of(db_);
  return connection.Run("create a link", [&](soci::session&) {
    auto row = EntryRow::From(entry);
    if (!row) return false;
    row->MakeNew(NewLinkId(), Now());
    row->id = connection.kept().Insert(*row);
    row->Identify(entry);
    return true;
  });
}

bool EntryDB::Update(const record::Entry& entry) {
  Connection& connection = Connection::Of(db_);
  return connection.Run("update a link", [&](soci::session& sql) {
    auto row = EntryRow::From(entry);
    if (!row) return false;
    Transaction transaction(sql);
    const EntryRow* present = connection.kept().LockLink(row->hash);
    if (present == nullptr || !row->MergeOnto(*present)) return false;
    connection.kept().Update(*row);
    transaction.Commit();
    return true;
  });
}

bool EntryDB::Delete(const record::Entry& entry) {
  return Connection::Of(db_).Run("delete a link", [&](soci::session& sql) {
    const long long id = entry.get_id();
    soci::statement statement = (sql.prepare << "delete from link where id = :id", soci::use(id));
    statement.execute(true);
    return statement.get_affected_rows() == 1;
  });
}

Condition* EntryDB::GetCondition() const { return condition_.get(); }

bool EntryDB::Count(int& n) const {
  const EntryQuery query(*condition_);
  return query.IsGood() && Connection::Of(db_).Run("count links", [&](soci::session& sql) {
    query.Count(sql, n);
    return true;
  });
}

bool EntryDB::Query(std::vector<record::Entry>& entries) const {
  entries.clear();
  const EntryQuery query(*condition_);
  std::vector<record::Entry> found;
  if (!query.IsGood() || !Connection::Of(db_).Run("list links", [&](soci::session& sql) {
        query.Run(sql, found);
        return true;
      })) {
    return false;
  }
  entries = std::move(found);
  return true;
}

bool EntryDB::PurgeExpiredByOwnerProject(std::uint32_t owner, const std::string& project) {
  return Connection::Of(db_).Run("purge links", [&](soci::session& sql) {
    const long long now = Now();
    const long long uid = owner;
    std::string text =
        "delete from link where auto_gc = 1 and ((expire_at <> 0 and expire_at < :now) "
        "or (expire_times <> 0 and visits >= expire_times))";
    soci::statement statement(sql);
    statement.exchange(soci::use(now, "now"));
    if (owner != kEveryOwner) {
      text += " and owner_uid = :owner";
      statement.exchange(soci::use(uid, "owner"));
    }
    if (!project.empty()) {
      text += " and project_name = :project";
      statement.exchange(soci::use(project, "project"));
    }
    Transaction transaction(sql);
    Prepare(statement, text);
    statement.execute(true);
    PurgeVisitors(sql, now);
    transaction.Commit();
    return true;
  });
}

}  // namespace VELT::sharing::db
