#include "veltsharing/Notify.h"

#include <algorithm>

#include "platform/store/NoticeQueue.h"
#include "platform/store/Secrets.h"
#include "platform/store/StoreContext.h"
#include "platform/store/sql/Connection.h"
#include "platform/store/sql/Transaction.h"
#include "veltsharing/SharingDB.h"

namespace VELT::sharing::notify {
namespace {

constexpr std::size_t kCodeLength = 8;

bool Run(const char* task, const db::Connection::Work& work) {
  return IsOwnersView() &&
         db::Connection::Of(*db::SharingDB::Instance()).RunWithReserve(task, work);
}

// 256 bits, as https://www.standardwebhooks.com has a secret: "whsec_" and base64 with padding.
std::string NewSecret() {
  std::string text = NewSessionId();
  std::replace(text.begin(), text.end(), '-', '+');
  std::replace(text.begin(), text.end(), '_', '/');
  return "whsec_" + text + "=";
}

// The channel's row, which is made if it is missing. It is never removed, so that nobody gets more
// messages by removing and adding an address.
long long EnsureChannel(soci::session& sql, long long uid, const std::string& way) {
  sql << "insert into notify_channel (owner_uid, way, account, language, kinds, address, code, "
         "secret, message, up_to, tries, due_at, taken_until, failing_since, error) values "
         "(:uid, :way, '', '', 0, '', '', '', '', 0, 0, 0, 0, 0, '') on conflict do nothing",
      soci::use(uid), soci::use(way);
  long long id = 0;
  sql << "select id from notify_channel where owner_uid = :uid and way = :way", soci::use(uid),
      soci::use(way), soci::into(id);
  return id;
}

// What waits is not for the new address.
void SetAddress(soci::session& sql, long long channel, const std::string& address,
                const std::string& code) {
  std::string before;
  sql << "select address from notify_channel where id = :id", soci::use(channel),
      soci::into(before);
  if (before == address) return;
  sql << "delete from notify_notice where channel_id = :id", soci::use(channel);
  sql << "update notify_channel set address = :address, code = :code, message = '', tries = 0, "
         "taken_until = 0, failing_since = 0, error = '' where id = :id",
      soci::use(address), soci::use(code), soci::use(channel);
  if (!code.empty() && !address.empty()) QueueAlone(sql, channel, "confirm", code);
}

// The next visit of a link that was visited already is not its first.
void NoteVisited(soci::session& sql, const std::string& links, long long id) {
  sql << "insert into notify_told (link_id, what) select id, 'opened' from link where visits > 0 "
         "and " +
             links + " on conflict do nothing",
      soci::use(id);
}

}  // namespace

bool Load(unsigned int uid, Settings& settings) {
  return Run("read what an owner wants to be told",
             [&](db::StoreSession& store) {
               std::string way;
               std::string code;
               Channel row;
               long long failing_since = 0;
               const long long owner = uid;
               soci::statement statement =
                   (store.sql().prepare
                        << "select way, kinds, address, code, secret, failing_since, error from "
                           "notify_channel where owner_uid = :uid",
                    soci::use(owner), soci::into(way), soci::into(settings.kinds),
                    soci::into(row.address), soci::into(code), soci::into(row.secret),
                    soci::into(failing_since), soci::into(row.error));
               statement.execute();
               while (statement.fetch()) {
                 row.confirmed = code.empty();
                 row.failing_since = failing_since;
                 (way == "mail" ? settings.mail : settings.webhook) = row;
               }
               return true;
             });
}

bool Save(const Owner& owner, Kinds kinds, const std::string& mail, const std::string& webhook) {
  return Run("store what an owner wants to be told", [&](db::StoreSession& store) {
    db::Transaction transaction(store);
    soci::session& sql = store.sql();
    const long long uid = owner.uid;
    SetAddress(sql, EnsureChannel(sql, uid, "mail"), mail, NewLinkId().substr(0, kCodeLength));
    SetAddress(sql, EnsureChannel(sql, uid, "webhook"), webhook, "");
    const std::string secret = NewSecret();
    sql << "update notify_channel set kinds = :kinds, account = :account, language = :language, "
           "secret = case secret when '' then :secret else secret end where owner_uid = :uid",
        soci::use(kinds), soci::use(owner.account), soci::use(owner.language), soci::use(secret),
        soci::use(uid);
    if ((kinds & kOpened) != 0) NoteVisited(sql, "owner_uid = :uid", uid);
    transaction.Commit();
    return true;
  });
}

bool Confirm(unsigned int uid, const std::string& code, bool& confirmed) {
  return Run("confirm an address of mail",
             [&](db::StoreSession& store) {
               const long long owner = uid;
               soci::statement statement =
                   (store.sql().prepare
                        << "update notify_channel set code = '' where owner_uid = :uid and way = "
                           "'mail' and address <> '' and code = :code",
                    soci::use(owner), soci::use(code));
               statement.execute(true);
               confirmed = !code.empty() && statement.get_affected_rows() == 1;
               return true;
             });
}

bool RenewSecret(unsigned int uid) {
  return Run("renew a webhook's secret", [&](db::StoreSession& store) {
    const long long owner = uid;
    const std::string secret = NewSecret();
    store.sql() << "update notify_channel set secret = :secret where owner_uid = :uid and way = "
                   "'webhook'",
        soci::use(secret), soci::use(owner);
    return true;
  });
}

bool Try(unsigned int uid) {
  return Run("queue messages to try with", [&](db::StoreSession& store) {
    db::Transaction transaction(store);
    const long long owner = uid;
    std::vector<long long> channels(2);
    store.sql()
        << "select id from notify_channel where owner_uid = :uid and address <> '' and code = "
           "''",
        soci::use(owner), soci::into(channels);
    for (const long long channel : channels) QueueAlone(store.sql(), channel, "test", "");
    transaction.Commit();
    return true;
  });
}

bool LoadOfLink(const record::Entry& entry, std::optional<Kinds>& kinds) {
  return Run("read what an owner wants to be told of a link", [&](db::StoreSession& store) {
    const long long link = entry.get_id();
    Kinds found = 0;
    store.sql() << "select kinds from notify_link where link_id = :id", soci::use(link),
        soci::into(found);
    kinds = store.sql().got_data() ? std::optional(found) : std::nullopt;
    return true;
  });
}

bool SaveOfLink(const record::Entry& entry, std::optional<Kinds> kinds) {
  return Run("store what an owner wants to be told of a link", [&](db::StoreSession& store) {
    db::Transaction transaction(store);
    const long long link = entry.get_id();
    store.sql() << "delete from notify_link where link_id = :id", soci::use(link);
    if (kinds) {
      store.sql() << "insert into notify_link (link_id, kinds) values (:id, :kinds)",
          soci::use(link), soci::use(*kinds);
    }
    if ((kinds.value_or(0) & kOpened) != 0) NoteVisited(store.sql(), "id = :id", link);
    transaction.Commit();
    return true;
  });
}

}  // namespace VELT::sharing::notify
