#include "host/request/Access.h"

#include <optional>
#include <string>

#include "veltsharing/Entry.h"
#include "veltsharing/Keys.h"
#include "veltsharing/SharingDB.h"
#include "veltsharing/Visit.h"
#include "veltsys/Accounts.h"
#include "veltsys/ResultCache.h"
#include "veltsys/User.h"

namespace VELT::host {

namespace {

struct Identity {
  unsigned int uid = RequestContext::kNobody;
  bool is_admin = false;
};

std::optional<Identity> LookUp(const std::string& name) {
  const auto user = accounts::FindUser(name);
  // kNobody and the uid above it have special meanings.
  if (!user.has_value() || user->uid >= RequestContext::kNobody) return std::nullopt;
  return Identity{user->uid, accounts::IsAdministrator(*user)};
}

// A look-up takes longer than the rest of a short request.
std::optional<Identity> FindIdentity(const std::string& name) {
  static ResultCache<std::string, Identity> identities(1000);
  return identities.Get(name, [&name] { return LookUp(name); });
}

}  // namespace

bool IdentifyUser(const WebRequest& request, RequestContext& context) {
  const std::string name = request.Variable("REMOTE_USER");
  if (name.empty()) return false;
  const auto identity = FindIdentity(name);
  if (!identity.has_value()) return false;
  context.login_uid = identity->uid;
  context.is_admin = identity->is_admin;
  return true;
}

bool AsksForAnotherLink(const RequestContext& context) {
  const auto found = context.parameters.find(sharing::SZK_SHARING_ID);
  if (!context.is_sharing || found == context.parameters.end()) return false;
  const RawParameter& raw = found->second;
  // Refused here, since no method accepts an array or an object as an id.
  if (raw.typed && !raw.json.isConvertibleTo(Json::stringValue)) return true;
  const std::string id = raw.typed ? raw.json.asString() : raw.text;
  return !id.empty() && id != context.sharing_id;
}

bool MayCall(const Access& access, const RequestContext& context, bool is_user) {
  if (!context.is_sharing) return access.user && is_user;
  if (access.visitor || !access.token) return access.visitor;
  auto& database = *sharing::db::SharingDB::Instance();
  sharing::record::Entry entry;
  return database.IsGood() && sharing::db::EntryDB(database).GetByHash(context.sharing_id, entry) &&
         sharing::HoldsToken(entry, context.sharing_sid);
}

}  // namespace VELT::host
