#include "platform/store/Purge.h"

#include "platform/store/EntryQuery.h"
#include "platform/store/FailedLogins.h"
#include "platform/store/LocalTime.h"
#include "platform/store/StoreContext.h"
#include "platform/store/VisitDays.h"
#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/EntryRow.h"
#include "platform/store/sql/Statement.h"
#include "platform/store/sql/Transaction.h"
#include "platform/store/sql/VisitorRows.h"

namespace VELT::sharing::db {
namespace {

// Limits, because all others wait for the transaction.
constexpr int kMostSessions = 1000;
constexpr const char* kOldDays =
    "(link_id, day) in (select link_id, day from visit_day where day < :oldest limit 10000)";

}  // namespace

long long PurgeLinks(soci::session& sql, std::uint32_t owner, const std::string& project) {
  const long long now = Now();
  const long long uid = owner;
  const Dialect& dialect = DialectOf(sql);
  std::string expired =
      "select id from link where auto_gc = 1 and ((expire_at <> 0 and expire_at < :now) "
      "or (expire_times <> 0 and visits >= expire_times))";
  soci::statement statement(sql);
  statement.exchange(soci::use(now, "now"));
  if (owner != kEveryOwner) {
    expired += " and owner_uid = :owner";
    statement.exchange(soci::use(uid, "owner"));
  }
  if (!project.empty()) {
    expired += " and project_name = :project";
    statement.exchange(soci::use(project, "project"));
  }
  if (const std::string among = AmongProjects(); !among.empty()) expired += " and " + among;
  BindProjects(statement);
  Transaction transaction(sql);
  // In a fixed order, since another purge may look the same links up in another.
  Prepare(statement, std::string("delete from link where ") + dialect.beside_no_such + "id in (" +
                         expired + " order by id" + dialect.row_lock + ")");
  statement.execute(true);
  const long long removed = statement.get_affected_rows();

  const long long unused_since = now - kSessionLife;
  sql << RemoveDeadSessionsSql(dialect, kMostSessions), soci::use(unused_since);
  PruneFailures(sql, now);
  PruneTurns(sql, now);
  const long long oldest = OldestVisitDay(LocalDay(now));
  sql << std::string("delete from visit_day where ") << dialect.if_alone << kOldDays,
      soci::use(oldest);
  transaction.Commit();
  return removed;
}

}  // namespace VELT::sharing::db
