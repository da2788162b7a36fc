#include "veltsharing/LinkEvents.h"

#include <set>

#include "platform/store/LocalTime.h"
#include "platform/store/NoticeQueue.h"
#include "platform/store/StoreContext.h"
#include "platform/store/sql/Connection.h"
#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/Transaction.h"
#include "veltsharing/RecordLinkEvents.h"
#include "veltsharing/SharingDB.h"

namespace VELT::sharing {
namespace {

constexpr int kMostOfLink = 1000;
constexpr int kMostOfAll = 200000;
constexpr std::int64_t kDay = std::int64_t{24} * 60 * 60;  // seconds

void Insert(soci::session& sql, const std::vector<LinkEvent>& events) {
  LinkEvent event;
  long long time = 0;
  long long times = 0;
  soci::statement statement =
      (sql.prepare << "insert into link_event (link_id, time, kind, file, result, address, "
                      "browser, times) select id, :time, :kind, :file, :result, :address, "
                      ":browser, :times from link where hash = :link",
       soci::use(time), soci::use(event.kind), soci::use(event.file), soci::use(event.result),
       soci::use(event.address), soci::use(event.browser), soci::use(times), soci::use(event.link));
  for (const LinkEvent& each : events) {
    event = each;
    time = each.time;
    times = each.times;
    statement.execute(true);
  }
}

// Of the links that have got new ones.
void RemoveSurplus(soci::session& sql, const std::vector<LinkEvent>& events) {
  std::set<std::string> links;
  for (const LinkEvent& event : events) links.insert(event.link);
  for (const std::string& link : links) {
    sql << "delete from link_event where link_id = (select id from link where hash = :link) and "
           "id <= (select e.id from link_event e join link l on l.id = e.link_id where "
           "l.hash = :link2 order by e.id desc limit 1 offset :most)",
        soci::use(link), soci::use(link), soci::use(kMostOfLink);
  }
}

std::int64_t OldestKept(int days) { return Now() - days * kDay; }

bool HasOld(soci::session& sql, int days) {
  const long long oldest = OldestKept(days);
  int found = 0;
  sql << "select 1 from link_event where time < :oldest limit 1", soci::use(oldest),
      soci::into(found);
  return sql.got_data();
}

// Limited, because all others wait for the transaction.
void RemoveOld(soci::session& sql, int days) {
  const char* const if_alone = db::DialectOf(sql).if_alone;
  const long long oldest = OldestKept(days);
  sql << std::string("delete from link_event where ") << if_alone
      << "id in (select id from link_event where time < :oldest order by time, id limit 1000)",
      soci::use(oldest);
  sql << std::string("delete from link_event where ") << if_alone
      << "id in (select id from link_event where id <= (select max(id) from link_event) - :most "
         "order by id limit 1000)",
      soci::use(kMostOfAll);
}

db::Connection& Store() { return db::Connection::Of(*db::SharingDB::Instance()); }

}  // namespace

bool RecordLinkEvents(const std::vector<LinkEvent>& events, int days) {
  return Store().Run("write down what visitors did", [&](db::StoreSession& store) {
    // Mostly there is nothing to do then, for which nobody else need wait.
    if (events.empty() && !HasOld(store.sql(), days)) return true;
    db::Transaction transaction(store);
    notify::Queue(store.sql(), events);
    if (days > 0) Insert(store.sql(), events);
    RemoveSurplus(store.sql(), events);
    RemoveOld(store.sql(), days);
    transaction.Commit();
    return true;
  });
}

bool ListLinkEvents(const record::Entry& entry, const LinkEventFilter& filter,
                    std::vector<LinkEvent>& events, int& total) {
  const long long link = entry.get_id();
  const long long since = filter.since;
  return Store().Run("list what visitors did", [&](db::StoreSession& store) {
    // The condition of both statements; an empty kind is every kind.
    const std::string where =
        " from link_event where link_id = :link and time > :since and (kind = :kind or :kind2 = "
        "'')";
    store.sql() << "select count(*)" + where, soci::use(link), soci::use(since),
        soci::use(filter.kind), soci::use(filter.kind), soci::into(total);
    LinkEvent row;
    long long time = 0;
    long long times = 0;
    soci::statement statement =
        (store.sql().prepare << "select time, kind, file, result, address, browser, times" + where +
                                    " order by id desc limit :limit offset :offset",
         soci::use(link), soci::use(since), soci::use(filter.kind), soci::use(filter.kind),
         soci::use(filter.limit), soci::use(filter.offset), soci::into(time), soci::into(row.kind),
         soci::into(row.file), soci::into(row.result), soci::into(row.address),
         soci::into(row.browser), soci::into(times));
    statement.execute();
    while (statement.fetch()) {
      row.time = time;
      row.times = times;
      events.push_back(row);
    }
    return true;
  });
}

}  // namespace VELT::sharing
