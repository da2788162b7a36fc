#include "Access.h"

#include "veltsharing/SharingDB.h"
#include "veltsys/Accounts.h"

namespace VELT::host {

bool IdentifyUser(const WebRequest& request, RequestContext& context) {
  const std::string name = request.Variable("REMOTE_USER");
  if (name.empty()) return false;
  const auto user = accounts::FindUser(name);
  // From kNobody on, uids have a meaning of their own.
  if (!user.has_value() || user->uid >= RequestContext::kNobody) return false;
  context.login_uid = user->uid;
  context.is_admin = accounts::IsAdministrator(*user);
  return true;
}

bool HoldsToken(const sharing::record::Entry& entry, const std::string& sid) {
  auto& database = *sharing::db::SharingDB::Instance();
  sharing::record::Session session;
  sharing::record::Token token;
  return !sid.empty() && sharing::db::SessionDB(database).GetBySessionId(sid, session) &&
         session.IsLegal() &&
         sharing::db::TokenDB(database).GetBySessionEntry(session, entry, token) &&
         token.IsLegal() && token.get_entry_id() == entry.get_id();
}

bool MayCall(const Access& access, const RequestContext& context, bool is_user) {
  if (!context.is_sharing) return access.user && is_user;
  if (access.visitor || !access.token) return access.visitor;
  auto& database = *sharing::db::SharingDB::Instance();
  sharing::record::Entry entry;
  return database.IsGood() && sharing::db::EntryDB(database).GetByHash(context.sharing_id, entry) &&
         HoldsToken(entry, context.sharing_sid);
}

}  // namespace VELT::host
