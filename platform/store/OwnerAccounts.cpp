#include "platform/store/OwnerAccounts.h"

#include <cstdint>

#include "platform/store/LocalTime.h"
#include "platform/store/Pam.h"
#include "platform/store/StoreContext.h"
#include "platform/store/sql/Transaction.h"
#include "veltsharing/Owners.h"
#include "veltsharing/SharingDB.h"

namespace VELT::sharing::owners {

bool Run(const char* task, const db::Connection::Work& work) {
  return db::Connection::Of(*db::SharingDB::Instance()).RunWithReserve(task, work);
}

bool IsCheckDue(long long checked_at, long long now) {
  constexpr long long kCheckEvery = 60;
  // The clock may have been set back.
  return checked_at + kCheckEvery <= now || checked_at > now;
}

long long EnsureAccount(db::StoreSession& store, const std::string& name, unsigned int uid) {
  const long long number = uid;
  long long id = 0;
  store.sql() << "delete from owner_account where name = :name and uid <> :uid", soci::use(name),
      soci::use(number);
  store.sql() << "insert into owner_account (name, uid, credential, checked_at, failures) "
                 "values (:name, :uid, '', 0, 0) "
                 "on conflict (name) do update set uid = excluded.uid returning id",
      soci::use(name), soci::use(number), soci::into(id);
  return id;
}

void NoteChecked(db::StoreSession& store, const std::string& name, const std::string& credential) {
  const long long now = Now();
  store.sql() << "update owner_account set credential = :credential, checked_at = :now "
                 "where name = :name",
      soci::use(credential), soci::use(now), soci::use(name);
  store.sql() << "delete from owner_session where credential <> :credential and account_id in "
                 "(select id from owner_account where name = :name)",
      soci::use(credential), soci::use(name);
}

std::string TimeText(std::int64_t time) { return FormatLocalTime(time); }

std::optional<std::int64_t> ParseTime(const std::string& text) {
  return text.empty() ? 0 : ParseLocalTime(text, kTimeFormat);
}

bool CheckAccount(const std::string& account, const std::string& address) {
  const PamReply reply = AskPam({PamRequest::Kind::kAccount, account, {}, address}, LoginTimeout());
  // While PAM is out of order nobody is let in, but sessions outlast that.
  if (reply.verdict == PamReply::Verdict::kFailed) return false;
  const bool admitted = reply.verdict == PamReply::Verdict::kRight;
  const bool noted = Run("note the state of an account", [&](db::StoreSession& store) {
    db::Transaction transaction(store);
    NoteChecked(store, account, admitted ? reply.credential : "");
    transaction.Commit();
    return true;
  });
  return admitted && noted;
}

}  // namespace VELT::sharing::owners
