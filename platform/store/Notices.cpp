#include "veltsharing/Notices.h"

#include <algorithm>

#include "platform/store/Secrets.h"
#include "platform/store/StoreContext.h"
#include "platform/store/sql/Connection.h"
#include "platform/store/sql/Dialect.h"
#include "platform/store/sql/Transaction.h"
#include "veltsharing/SharingDB.h"

namespace VELT::sharing::notify {
namespace {

constexpr std::int64_t kShortestPause = 60;  // also between two messages to one address
constexpr std::int64_t kLongestPause = 60 * 60;
constexpr std::size_t kIdLength = 16;
constexpr std::size_t kLongestError = 200;

// The columns of a channel that a message needs.
constexpr const char* kChannel =
    "select c.id, c.way, c.owner_uid, c.account, c.language, c.address, c.secret, c.message, "
    "c.up_to from notify_channel c where ";

struct Row {
  Message message;
  std::string way;
  long long uid = 0;
  long long up_to = 0;

  Message Finish() {
    message.is_mail = way == "mail";
    message.owner.uid = static_cast<unsigned int>(uid);
    return std::move(message);
  }
};

// For a statement that begins with kChannel.
void Into(soci::details::prepare_temp_type& statement, Row& row) {
  Message& message = row.message;
  statement, soci::into(message.channel), soci::into(row.way), soci::into(row.uid),
      soci::into(message.owner.account), soci::into(message.owner.language),
      soci::into(message.address), soci::into(message.secret), soci::into(message.id),
      soci::into(row.up_to);
}

db::Connection& Store() { return db::Connection::Of(*db::SharingDB::Instance()); }

std::string NewMessageId() { return NewLinkId().substr(0, kIdLength); }

void ReadNotices(soci::session& sql, Message& message, long long up_to) {
  Notice notice;
  long long time = 0;
  long long times = 0;
  soci::statement statement =
      (sql.prepare << "select time, kind, link, title, file, times from notify_notice where "
                      "channel_id = :channel and id <= :up_to order by id",
       soci::use(message.channel), soci::use(up_to), soci::into(time), soci::into(notice.kind),
       soci::into(notice.link), soci::into(notice.title), soci::into(notice.file),
       soci::into(times));
  statement.execute();
  while (statement.fetch()) {
    notice.time = time;
    notice.times = times;
    message.notices.push_back(notice);
  }
}

std::int64_t PauseAfter(long long tries) {
  return std::min(kShortestPause << std::clamp(tries - 1, 0LL, 6LL), kLongestPause);
}

}  // namespace

bool TakeMessage(std::int64_t wait, std::optional<Message>& message) {
  message.reset();
  return Store().Run("take a message to an owner", [&](db::StoreSession& store) {
    soci::session& sql = store.sql();
    const long long now = Now();
    const long long ripe = now - wait;
    const std::string due =
        "c.due_at <= :now and c.taken_until <= :now2 and exists (select 1 from notify_notice n "
        "where n.channel_id = c.id and (c.message <> '' or n.time <= :ripe)) "
        "order by c.tries, c.due_at limit 1";
    const auto find = [&](const char* lock) {
      Row row;
      auto statement = (sql.prepare << std::string(kChannel) + due + lock, soci::use(now),
                        soci::use(now), soci::use(ripe));
      Into(statement, row);
      soci::statement found(statement);
      return found.execute(true) ? std::optional(std::move(row)) : std::nullopt;
    };
    // Mostly there is none, for which nobody need wait.
    if (!find("")) return true;
    db::Transaction transaction(store);
    auto row = find(db::DialectOf(sql).row_lock);
    if (!row) return true;  // another process has it
    const bool is_new = row->message.id.empty();
    if (is_new) {
      row->message.id = NewMessageId();
      sql << "select max(id) from notify_notice where channel_id = :id",
          soci::use(row->message.channel), soci::into(row->up_to);
    }
    const long long until = now + kSendingTime;
    sql << "update notify_channel set message = :message, up_to = :up_to, tries = tries + 1, "
           "taken_until = :until where id = :id",
        soci::use(row->message.id), soci::use(row->up_to), soci::use(until),
        soci::use(row->message.channel);
    const long long up_to = row->up_to;
    message = row->Finish();
    ReadNotices(sql, *message, up_to);
    transaction.Commit();
    return true;
  });
}

bool ReportMessage(const Message& message, const std::string& error) {
  return Store().Run("note what became of a message", [&](db::StoreSession& store) {
    soci::session& sql = store.sql();
    db::Transaction transaction(store);
    const long long now = Now();
    long long up_to = 0;
    long long tries = 0;
    long long failing_since = 0;
    sql << "select up_to, tries, failing_since from notify_channel where id = :id and "
           "message = :message",
        soci::use(message.channel), soci::use(message.id), soci::into(up_to), soci::into(tries),
        soci::into(failing_since);
    if (!sql.got_data()) return true;  // the owner has changed the address
    // A code and a message to try with have no time: theirs begins with the first failure.
    const std::int64_t oldest = message.notices.empty() ? 0 : message.notices.front().time;
    const std::int64_t begun = oldest != 0 ? oldest : failing_since != 0 ? failing_since : now;
    const bool is_over = begun < now - kPatience;
    if (error.empty() || is_over) {
      sql << "delete from notify_notice where channel_id = :id and id <= :up_to",
          soci::use(message.channel), soci::use(up_to);
      sql << "update notify_channel set message = '' where id = :id", soci::use(message.channel);
    }
    const long long since = error.empty() ? 0 : failing_since != 0 ? failing_since : now;
    const long long left = error.empty() ? 0 : tries;
    const long long due = now + PauseAfter(left);
    const std::string text = error.substr(0, kLongestError);
    sql << "update notify_channel set tries = :tries, due_at = :due, taken_until = 0, "
           "error = :error, failing_since = :since where id = :id",
        soci::use(left), soci::use(due), soci::use(text), soci::use(since),
        soci::use(message.channel);
    transaction.Commit();
    return true;
  });
}

bool TestMessages(unsigned int uid, std::vector<Message>& messages) {
  return Store().Run("find an owner's addresses", [&](db::StoreSession& store) {
    const long long owner = uid;
    Row row;
    auto prepared =
        (store.sql().prepare << std::string(kChannel) +
                                    "c.owner_uid = :uid and c.address <> '' and c.code = "
                                    "'' order by c.id",
         soci::use(owner));
    Into(prepared, row);
    soci::statement statement(prepared);
    statement.execute();
    while (statement.fetch()) {
      Row copy = row;
      copy.message.id = NewMessageId();
      copy.message.notices = {{0, "test", {}, {}, {}, 1}};
      messages.push_back(copy.Finish());
    }
    return true;
  });
}

}  // namespace VELT::sharing::notify
