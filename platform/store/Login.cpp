#include "veltsharing/Login.h"

#include <syslog.h>

#include "platform/store/LogText.h"
#include "platform/store/Secrets.h"
#include "platform/store/StoreContext.h"
#include "platform/store/VisitorLogin.h"
#include "platform/store/sql/Connection.h"
#include "platform/store/sql/StoreSession.h"
#include "veltsharing/Entry.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/View.h"

namespace {

using LoginOutcome = VELT::sharing::View::LoginOutcome;

LoginOutcome OutcomeOf(VELT::sharing::LoginResult result, bool is_new) {
  using VELT::sharing::LoginResult;
  switch (result) {
    case LoginResult::kLoggedIn:
      return is_new ? LoginOutcome::kVisit : LoginOutcome::kNone;
    case LoginResult::kInternal:
    case LoginResult::kNotServed:
      return LoginOutcome::kNone;
    case LoginResult::kDenied:
      return LoginOutcome::kBraked;
    case LoginResult::kWrongAccount:
    case LoginResult::kWrongPassword:
    case LoginResult::kNotListed:
    case LoginResult::kUsedUp:
      return LoginOutcome::kRefused;
  }
  return LoginOutcome::kNone;
}

}  // namespace

int VeltSharingLogin(std::string& sid, const _tag_sharing_login_params* params, bool flag) {
  using VELT::sharing::LoginResult;
  using VELT::sharing::Printable;
  LoginResult result = LoginResult::kInternal;
  std::string link;
  try {
    if (params != nullptr && !flag) {
      link = Printable(params->sharing_id, 6);
      VELT::sharing::db::VisitorLogin login(*params);
      result = login.Run();
      VELT::sharing::CurrentView().login_wait = login.lockout();
      VELT::sharing::CurrentView().login = OutcomeOf(result, login.is_new_visit());
      if (result == LoginResult::kLoggedIn) sid = login.new_sid();
    }
  } catch (const std::exception&) {  // a damaged link, or no memory
    syslog(LOG_ERR, "sharing store: unexpected failure to log a visitor in");
  }
  syslog(LOG_INFO, "sharing login: result %d, address %s, link %s", static_cast<int>(result),
         Printable(VELT::sharing::CurrentView().address, 64).c_str(), link.c_str());
  return static_cast<int>(result);
}

int VeltSharingLogout(const std::string& sharing_id, const std::string& sid) {
  using VELT::sharing::db::SharingDB;
  using VELT::sharing::db::StoreSession;
  SharingDB& database = *SharingDB::Instance();
  const auto end_session = [&](StoreSession& store) {
    const std::string hash = VELT::sharing::Digest(sid);
    soci::statement statement =
        (store.sql().prepare
             << "delete from visitor_session where sid_hash = :hash and id in "
                "(select t.session_id from visitor_token t join link l on l.id = t.link_id "
                "where l.hash = :link)",
         soci::use(hash), soci::use(sharing_id));
    statement.execute(true);
    return statement.get_affected_rows() == 1;
  };
  if (!VELT::sharing::db::Connection::Of(database).Run("log a visitor out", end_session)) return 0;
  // A disabled link must look like an unknown one, so the result depends on what a visitor finds.
  VELT::sharing::record::Entry link;
  return VELT::sharing::db::EntryDB(database).GetByHash(sharing_id, link) ? 1 : 0;
}
