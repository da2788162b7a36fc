#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/store/Account.h"
#include "platform/store/EntryQuery.h"
#include "platform/store/Purge.h"
#include "platform/store/Secrets.h"
#include "platform/store/StoreContext.h"
#include "platform/store/sql/Connection.h"
#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/EntryRow.h"
#include "platform/store/sql/PreparedStatements.h"
#include "platform/store/sql/StoreSession.h"
#include "platform/store/sql/Transaction.h"
#include "veltsharing/Condition.h"
#include "veltsharing/Entry.h"
#include "veltsharing/SharingDB.h"

namespace VELT::sharing::db {

EntryDB::EntryDB(BaseDB& db) : db_(db), condition_(std::make_unique<Condition>()) {}
EntryDB::~EntryDB() = default;

bool EntryDB::GetByHash(const std::string& hash, record::Entry& entry) {
  entry = record::Entry();
  return IsLinkId(hash) && Connection::Of(db_).Run("read a link", [&](StoreSession& store) {
    PreparedStatements& statements = store.statements();
    const EntryRow* row =
        IsOwnersView() ? statements.FindLink(hash) : statements.FindEnabledLink(hash);
    if (row == nullptr || (!IsOwnersView() && !OwnerExists(row->owner_uid))) return false;
    if (!SeesProject(row->project_name)) return false;
    entry = row->ToEntry();
    return true;
  });
}

bool EntryDB::CreateWithHash(record::Entry& entry) {
  return IsOwnersView() && Connection::Of(db_).Run("create a link", [&](StoreSession& store) {
    auto row = EntryRow::From(entry);
    if (!row || !SeesProject(row->project_name)) return false;
    row->MakeNew(NewLinkId(), Now());
    row->id = store.statements().InsertLink(*row);
    row->Identify(entry);
    return true;
  });
}

bool EntryDB::Update(const record::Entry& entry) {
  return IsOwnersView() &&
         Connection::Of(db_).RunWithReserve("update a link", [&](StoreSession& store) {
           auto row = EntryRow::From(entry);
           if (!row) return false;
           Transaction transaction(store);
           const EntryRow* stored = store.statements().LockLink(row->hash);
           if (stored == nullptr || !SeesProject(stored->project_name)) return false;
           if (!row->MergeOnto(*stored) || !SeesProject(row->project_name)) return false;
           store.statements().UpdateLink(*row);
           transaction.Commit();
           return true;
         });
}

bool EntryDB::Delete(const record::Entry& entry) {
  return IsOwnersView() &&
         Connection::Of(db_).RunWithReserve("delete a link", [&](StoreSession& store) {
           const long long id = entry.get_id();
           soci::statement statement =
               (store.sql().prepare << "delete from link where "
                                    << DialectOf(store.sql()).beside_no_such << "id = :id",
                soci::use(id));
           statement.execute(true);
           return statement.get_affected_rows() == 1;
         });
}

Condition* EntryDB::GetCondition() const { return condition_.get(); }

bool EntryDB::Count(int& n) const {
  const EntryQuery query(*condition_);
  return IsOwnersView() && query.IsGood() &&
         Connection::Of(db_).Run("count links", [&](StoreSession& store) {
           query.Count(store.sql(), n);
           return true;
         });
}

bool EntryDB::Query(std::vector<record::Entry>& entries) const {
  entries.clear();
  const EntryQuery query(*condition_);
  std::vector<record::Entry> found;
  if (!IsOwnersView() || !query.IsGood() ||
      !Connection::Of(db_).Run("list links", [&](StoreSession& store) {
        query.Run(store.sql(), found);
        return true;
      })) {
    return false;
  }
  entries = std::move(found);
  return true;
}

bool EntryDB::PurgeExpiredByOwnerProject(std::uint32_t owner, const std::string& project) {
  return IsOwnersView() &&
         Connection::Of(db_).RunWithReserve("purge links", [&](StoreSession& store) {
           PurgeLinks(store.sql(), owner, project);
           return true;
         });
}

}  // namespace VELT::sharing::db
