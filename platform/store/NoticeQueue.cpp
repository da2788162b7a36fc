#include "platform/store/NoticeQueue.h"

#include "platform/store/StoreContext.h"
#include "platform/store/sql/Connection.h"
#include "platform/store/sql/Transaction.h"
#include "veltsharing/Notices.h"
#include "veltsharing/Owners.h"
#include "veltsharing/SharingDB.h"

namespace VELT::sharing::notify {
namespace {

// Of one address. More than these wait only for an address that fails, and would make no better
// message.
constexpr int kMostWaiting = 1000;
constexpr std::int64_t kDay = std::int64_t{24} * 60 * 60;

// Ways to tell a link's owner of something that they want to know: :kind is one of Kinds.
constexpr const char* kWanted =
    " from link l join notify_channel c on c.owner_uid = l.owner_uid and c.address <> '' and "
    "c.code = '' left join notify_link n on n.link_id = l.id "
    "where (coalesce(n.kinds, c.kinds) & :kind) <> 0 and ";

struct Cause {
  Kinds kind = 0;
  const char* name = "";
};

Cause CauseOf(const LinkEvent& event) {
  if (event.kind == "visit") return {kOpened, "opened"};
  if (event.kind == "upload") return {kUpload, "upload"};
  if (event.kind == "download" || event.kind == "archive") return {kDownload, "download"};
  if (event.kind == "login" && event.result == "braked") return {kGuesses, "guesses"};
  return {};
}

// Whether nobody was told before; from now on somebody was.
bool IsFirst(soci::session& sql, const std::string& what, Kinds kind, const std::string& link) {
  soci::statement statement =
      (sql.prepare << "insert into notify_told (link_id, what) select distinct l.id, cast(:what as "
                      "varchar(64))" +
                          std::string(kWanted) + "l.hash = :link on conflict do nothing",
       soci::use(what), soci::use(kind), soci::use(link));
  statement.execute(true);
  return statement.get_affected_rows() > 0;
}

void Insert(soci::session& sql, const Notice& notice, Kinds kind, const std::string& link) {
  const long long time = notice.time;
  const long long times = notice.times;
  sql << "insert into notify_notice (channel_id, time, kind, link, title, file, times) select "
         "c.id, cast(:time as bigint), cast(:name as varchar(16)), substr(l.hash, 1, 6), "
         "l.protect_title, cast(:file as varchar(255)), cast(:times as bigint)" +
             std::string(kWanted) +
             "l.hash = :link and (select count(*) from notify_notice w where w.channel_id = c.id) "
             "< :most",
      soci::use(time), soci::use(notice.kind), soci::use(notice.file), soci::use(times),
      soci::use(kind), soci::use(link), soci::use(kMostWaiting);
}

}  // namespace

void Queue(soci::session& sql, const std::vector<LinkEvent>& events) {
  for (const LinkEvent& event : events) {
    const Cause cause = CauseOf(event);
    if (cause.kind == 0) continue;
    if (cause.kind == kOpened && !IsFirst(sql, cause.name, cause.kind, event.link)) continue;
    Insert(sql, {event.time, cause.name, {}, {}, event.file, event.times}, cause.kind, event.link);
  }
}

void QueueAlone(soci::session& sql, long long channel, const std::string& kind,
                const std::string& text) {
  sql << "delete from notify_notice where channel_id = :channel and kind = :kind",
      soci::use(channel), soci::use(kind);
  sql << "insert into notify_notice (channel_id, time, kind, link, title, file, times) values "
         "(:channel, 0, :kind, '', '', :text, 1)",
      soci::use(channel), soci::use(kind), soci::use(text);
}

bool NoticeEnds() {
  struct Ending {
    std::string link;
    long long time = 0;
  };
  return db::Connection::Of(*db::SharingDB::Instance())
      .Run("look for links that end soon", [](db::StoreSession& store) {
        const long long now = Now();
        const long long soon = now + kDay;
        const Kinds kind = kEnding;
        std::vector<Ending> endings;
        Ending row;
        soci::statement statement =
            (store.sql().prepare
                 << "select distinct l.hash, l.expire_at" + std::string(kWanted) +
                        "l.expire_at > :now and l.expire_at <= :soon and l.enabled = 1 and "
                        "(l.expire_at - :now2) * 4 <= l.expire_at - l.created_at and not exists "
                        "(select 1 from notify_told t where t.link_id = l.id and t.what = "
                        "'ending ' || l.expire_at) limit 1000",
             soci::use(kind), soci::use(now), soci::use(soon), soci::use(now), soci::into(row.link),
             soci::into(row.time));
        statement.execute();
        while (statement.fetch()) endings.push_back(row);
        for (const Ending& ending : endings) {
          db::Transaction transaction(store);
          const std::string what = "ending " + std::to_string(ending.time);
          if (IsFirst(store.sql(), what, kind, ending.link)) {
            Insert(store.sql(), {now, "ending", {}, {}, owners::TimeText(ending.time), 1}, kind,
                   ending.link);
          }
          transaction.Commit();
        }
        return true;
      });
}

}  // namespace VELT::sharing::notify
